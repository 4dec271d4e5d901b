// Object: built-in classes of the object system and their registration.
#include "Object.h"

#include <atomic>

#include "ClassInfo.h"

namespace {

std::atomic<int32_t> objectCount{0};

void registerObject(int32_t starting) {
    ClassRegistry* registry = classRegistry();
    if (!registry)
        return;
    if (!starting) {
        registry->unregisterClass("Core::Object");
        return;
    }
    registry->registerClass("Core::Object", "");
}

void registerTreeItem(int32_t starting) {
    ClassRegistry* registry = classRegistry();
    if (!registry)
        return;
    if (!starting) {
        registry->unregisterClass("Core.TreeItem");
        return;
    }
    if (ClassInfo* info = registry->registerClass("Core.TreeItem", "Core::Object"))
        info->addProperty("name", PropertyKind::Name, 8, 8);
}

void registerPackageObject(int32_t starting) {
    ClassRegistry* registry = classRegistry();
    if (!registry)
        return;
    if (!starting) {
        registry->unregisterClass("Core.PackageObject");
        return;
    }
    if (ClassInfo* info = registry->registerClass("Core.PackageObject", "Core.TreeItem")) {
        info->addProperty("name", PropertyKind::Name, 8, 8);
        info->addProperty("owner", PropertyKind::Pointer, 8, 8, "Core.Package");
    }
}

void registerPackage(int32_t starting) {
    ClassRegistry* registry = classRegistry();
    if (!registry)
        return;
    if (!starting) {
        registry->unregisterClass("Core.Package");
        return;
    }
    if (ClassInfo* info = registry->registerClass("Core.Package", "Core.PackageObject")) {
        info->addProperty("name", PropertyKind::Name, 8, 8);
        info->addProperty("owner", PropertyKind::Pointer, 8, 8, "Core.Package");
        info->addProperty("objects", PropertyKind::ArrayOf, 16, 8, "ptr<Core.PackageObject>");
    }
}

}  // namespace

const ClassStartup builtInClassStartups[4] = {registerObject, registerTreeItem, registerPackageObject,
                                              registerPackage};

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
