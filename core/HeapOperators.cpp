// The global allocation operators: the platform allocator until the process
// heap is attached, the process heap from then on. Linked into every binary
// except sanitizer builds, which keep the platform allocator throughout.
#include <cstddef>
#include <cstdlib>
#include <new>

#include "core/Heap.h"

namespace {

// operator new gives 16-byte alignment, but a block smaller than that needs
// no more than its largest power of two (8 for 8 to 15 bytes, and 8 below).
// The heap lays blocks out in steps of 8 bytes, so the 16 is asked for, not
// assumed: a type aligned to max_align_t is at least that large, and so gets
// it. Stricter alignments come through the align_val_t forms.
size_t naturalAlignment(size_t size) { return size < 16 ? 8 : 16; }
static_assert(alignof(std::max_align_t) <= 16, "operator new promises max_align_t alignment");

void* platformAllocate(size_t size, size_t alignment) {
    if (alignment <= alignof(std::max_align_t))
        return std::malloc(size ? size : 1);
    void* memory = nullptr;
    alignment = alignment < sizeof(void*) ? sizeof(void*) : alignment;
    return posix_memalign(&memory, alignment, size ? size : 1) == 0 ? memory : nullptr;
}

// Alignments beyond what the heap serves fall back to the platform; the
// release below tells the two apart by address.
void* allocate(size_t size, size_t alignment) {
    if (!heapAttached())
        return platformAllocate(size, alignment);
    void* memory = processHeap().allocate(size, alignment);
    if (!memory && alignment > (size_t(1) << 20))
        return platformAllocate(size, alignment);
    return memory;
}

// Without exceptions an allocation failure cannot be reported to the caller
// of a throwing operator new, so the process stops here.
void* allocateOrAbort(size_t size, size_t alignment) {
    void* memory = allocate(size, alignment);
    if (!memory)
        std::abort();
    return memory;
}

size_t requested(size_t size, std::align_val_t alignment) {
    size_t natural = naturalAlignment(size);
    return size_t(alignment) > natural ? size_t(alignment) : natural;
}

// Memory from before the heap was attached lies outside every segment and
// goes back to the platform.
void release(void* memory) {
    if (memory && !processHeap().release(memory))
        std::free(memory);
}

}  // namespace

void* operator new(size_t size) { return allocateOrAbort(size, naturalAlignment(size)); }
void* operator new[](size_t size) { return allocateOrAbort(size, naturalAlignment(size)); }
void* operator new(size_t size, const std::nothrow_t&) noexcept { return allocate(size, naturalAlignment(size)); }
void* operator new[](size_t size, const std::nothrow_t&) noexcept { return allocate(size, naturalAlignment(size)); }
void* operator new(size_t size, std::align_val_t alignment) { return allocateOrAbort(size, requested(size, alignment)); }
void* operator new[](size_t size, std::align_val_t alignment) { return allocateOrAbort(size, requested(size, alignment)); }
void* operator new(size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
    return allocate(size, requested(size, alignment));
}
void* operator new[](size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
    return allocate(size, requested(size, alignment));
}

void operator delete(void* memory) noexcept { release(memory); }
void operator delete[](void* memory) noexcept { release(memory); }
void operator delete(void* memory, const std::nothrow_t&) noexcept { release(memory); }
void operator delete[](void* memory, const std::nothrow_t&) noexcept { release(memory); }
void operator delete(void* memory, size_t) noexcept { release(memory); }
void operator delete[](void* memory, size_t) noexcept { release(memory); }
void operator delete(void* memory, std::align_val_t) noexcept { release(memory); }
void operator delete[](void* memory, std::align_val_t) noexcept { release(memory); }
void operator delete(void* memory, size_t, std::align_val_t) noexcept { release(memory); }
void operator delete[](void* memory, size_t, std::align_val_t) noexcept { release(memory); }
void operator delete(void* memory, std::align_val_t, const std::nothrow_t&) noexcept { release(memory); }
void operator delete[](void* memory, std::align_val_t, const std::nothrow_t&) noexcept { release(memory); }
