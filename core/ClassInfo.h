// ClassInfo: the object system's reflection records. A class is registered
// by name with its typed properties; a class dump prints one line per
// property. The registry holds the classes and the root package. Started and
// stopped with the runtime; none of the commands uses it.
#pragma once

#include <cstdint>

#include "core/Array.h"
#include "core/Mutex.h"
#include "core/String.h"

enum class PropertyKind : uint8_t {
    Bool, SByte, UShort, UInt, ULong, Float, Double, Name, Text,
    Pointer, ArrayOf, EnumOf, StructOf,
};

struct Property {
    String name;
    PropertyKind kind = PropertyKind::Bool;
    String argument;  // the element, enum or struct name of the composite kinds
    int32_t offset = 0;
    int32_t align = 1;
    int32_t size = 1;

    String typeName() const;  // "Bool" ... "string", "ptr<X>", "array<X>", "enum<X>", "struct<X>"
};

class ClassInfo {
public:
    ClassInfo(const String& name, const ClassInfo* parent) : className(name), parentClass(parent) {}

    const String& name() const { return className; }
    const ClassInfo* parent() const { return parentClass; }
    const Array<Property>& properties() const { return propertyList; }

    // Appends a property at the next offset its alignment allows.
    void addProperty(const String& name, PropertyKind kind, int32_t size, int32_t align, const String& argument = String());
    int32_t instanceSize() const { return nextOffset; }
    bool isA(const ClassInfo* other) const;

    // "\t<name> : <type> {ofs=<offset> align=<align> size=<size>}\n" per property.
    String dump() const;

private:
    String className;
    const ClassInfo* parentClass;
    Array<Property> propertyList;
    int32_t nextOffset = 0;
};

class Package;

class ClassRegistry {
public:
    ClassRegistry();
    ~ClassRegistry();

    ClassInfo* registerClass(const String& name, const String& parentName);
    bool unregisterClass(const String& name);
    ClassInfo* find(const String& name);
    int32_t count();
    Package* rootPackage() { return root; }

private:
    Mutex mutex;
    Array<ClassInfo*> classes;
    Package* root = nullptr;
};

// The process's registry, or null outside coreInit/coreShutdown.
ClassRegistry* classRegistry();
