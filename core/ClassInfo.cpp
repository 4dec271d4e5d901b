// ClassInfo: reflection records and the class registry.
#include "core/ClassInfo.h"

#include "core/Object.h"

String Property::typeName() const {
    switch (kind) {
    case PropertyKind::Bool: return "Bool";
    case PropertyKind::SByte: return "SByte";
    case PropertyKind::UShort: return "UShort";
    case PropertyKind::UInt: return "UInt";
    case PropertyKind::ULong: return "ULong";
    case PropertyKind::Float: return "Float";
    case PropertyKind::Double: return "Double";
    case PropertyKind::Name: return "name";
    case PropertyKind::Text: return "string";
    case PropertyKind::Pointer: return String("ptr<") + argument + ">";
    case PropertyKind::ArrayOf: return String("array<") + argument + ">";
    case PropertyKind::EnumOf: return String("enum<") + argument + ">";
    case PropertyKind::StructOf: return String("struct<") + argument + ">";
    }
    return String();
}

void ClassInfo::addProperty(const String& name, PropertyKind kind, int32_t size, int32_t align, const String& argument) {
    Property property;
    property.name = name;
    property.kind = kind;
    property.argument = argument;
    property.align = align > 0 ? align : 1;
    property.size = size;
    property.offset = (nextOffset + property.align - 1) / property.align * property.align;
    nextOffset = property.offset + size;
    propertyList.add(property);
}

bool ClassInfo::isA(const ClassInfo* other) const {
    for (const ClassInfo* c = this; c; c = c->parentClass)
        if (c == other)
            return true;
    return false;
}

String ClassInfo::dump() const {
    String text;
    for (const Property& p : propertyList)
        text += String::format("\t%s : %s {ofs=%d align=%d size=%d}\n", p.name.c_str(), p.typeName().c_str(),
                               p.offset, p.align, p.size);
    return text;
}

ClassRegistry::ClassRegistry() : root(new Package("root")) {}

ClassRegistry::~ClassRegistry() {
    delete root;
    for (ClassInfo* info : classes)
        delete info;
}

ClassInfo* ClassRegistry::registerClass(const String& name, const String& parentName) {
    ScopedLock lock(mutex);
    for (ClassInfo* info : classes)
        if (info->name() == name)
            return nullptr;
    const ClassInfo* parent = nullptr;
    for (ClassInfo* info : classes)
        if (info->name() == parentName)
            parent = info;
    ClassInfo* info = new ClassInfo(name, parent);
    classes.add(info);
    return info;
}

bool ClassRegistry::unregisterClass(const String& name) {
    ScopedLock lock(mutex);
    for (int32_t i = 0; i < classes.count(); ++i) {
        if (classes[i]->name() == name) {
            delete classes[i];
            classes.removeAt(i);
            return true;
        }
    }
    return false;
}

ClassInfo* ClassRegistry::find(const String& name) {
    ScopedLock lock(mutex);
    for (ClassInfo* info : classes)
        if (info->name() == name)
            return info;
    return nullptr;
}

int32_t ClassRegistry::count() {
    ScopedLock lock(mutex);
    return classes.count();
}
