// Object: the object system's built-in classes. Every live object counts
// in the object-heap counter, which must be back at zero at shutdown.
// A Package owns the objects put into it.
#pragma once

#include <cstdint>

#include "core/Array.h"
#include "core/String.h"

class Object {
public:
    Object();
    Object(const Object&) = delete;
    Object& operator=(const Object&) = delete;
    virtual ~Object();

    static int32_t liveObjects();
};

class TreeItem : public Object {
public:
    explicit TreeItem(const String& itemName) : name(itemName) {}
    String name;
};

class Package;

class PackageObject : public TreeItem {
public:
    using TreeItem::TreeItem;
    Package* owner = nullptr;
};

class Package : public PackageObject {
public:
    using PackageObject::PackageObject;
    ~Package() override;

    void adopt(PackageObject* object);  // the package now owns it
    PackageObject* find(const String& objectName) const;
    int32_t count() const { return objects.count(); }

private:
    Array<PackageObject*> objects;
};

// The object system's start-up routines, run by coreInit with 1 and by
// coreShutdown with 0 in reverse order; each registers one built-in class.
using ClassStartup = void (*)(int32_t starting);
extern const ClassStartup builtInClassStartups[4];
