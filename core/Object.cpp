// Object: built-in classes of the object system and their registration.
#include "core/Object.h"

#include <atomic>

#include "core/ClassInfo.h"

namespace {

std::atomic<int32_t> objectCount{0};

struct PropertyEntry {
    const char* name;
    PropertyKind kind;
    const char* argument;
};

struct BuiltInClass {
    const char* name;
    const char* parent;
    PropertyEntry properties[3];
    int32_t propertyCount;
};

// Every built-in property is one pointer-sized or two-pointer-sized field.
const BuiltInClass builtInClasses[4] = {
    {"Core::Object", "", {}, 0},
    {"Core.TreeItem", "Core::Object", {{"name", PropertyKind::Name, ""}}, 1},
    {"Core.PackageObject", "Core.TreeItem",
     {{"name", PropertyKind::Name, ""}, {"owner", PropertyKind::Pointer, "Core.Package"}}, 2},
    {"Core.Package", "Core.PackageObject",
     {{"name", PropertyKind::Name, ""},
      {"owner", PropertyKind::Pointer, "Core.Package"},
      {"objects", PropertyKind::ArrayOf, "ptr<Core.PackageObject>"}},
     3},
};

template <int Index>
void registerBuiltIn(int32_t starting) {
    ClassRegistry* registry = classRegistry();
    if (!registry)
        return;
    const BuiltInClass& entry = builtInClasses[Index];
    if (!starting) {
        registry->unregisterClass(entry.name);
        return;
    }
    ClassInfo* info = registry->registerClass(entry.name, entry.parent);
    if (!info)
        return;
    for (int32_t i = 0; i < entry.propertyCount; ++i) {
        const PropertyEntry& p = entry.properties[i];
        int32_t size = p.kind == PropertyKind::ArrayOf ? 16 : 8;
        info->addProperty(p.name, p.kind, size, 8, p.argument);
    }
}

}  // namespace

const ClassStartup builtInClassStartups[4] = {registerBuiltIn<0>, registerBuiltIn<1>, registerBuiltIn<2>,
                                              registerBuiltIn<3>};

Object::Object() { objectCount.fetch_add(1, std::memory_order_relaxed); }
Object::~Object() { objectCount.fetch_sub(1, std::memory_order_relaxed); }
int32_t Object::liveObjects() { return objectCount.load(std::memory_order_relaxed); }

Package::~Package() {
    for (PackageObject* object : objects)
        delete object;
}

void Package::adopt(PackageObject* object) {
    if (!object)
        return;
    object->owner = this;
    objects.add(object);
}

PackageObject* Package::find(const String& objectName) const {
    for (PackageObject* object : objects)
        if (object->name == objectName)
            return object;
    return nullptr;
}
