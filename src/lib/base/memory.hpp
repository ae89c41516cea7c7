// Heap memory of the library: zero-filled, exactly as long as asked for, freed by its owner.
#ifndef VIMBRA_LIB_BASE_MEMORY_HPP
#define VIMBRA_LIB_BASE_MEMORY_HPP

#include <vimbra/types.h>

#include <cstddef>
#include <cstdlib>

namespace vimbra {

class Buffer {
 public:
    Buffer() = default;
    explicit Buffer(size_t size) : data_(static_cast<u8*>(calloc(1, size))) {}
    Buffer(const Buffer&) = delete;
    Buffer& operator=(const Buffer&) = delete;
    ~Buffer() { free(data_); }

    u8* Get() const { return data_; }
    explicit operator bool() const { return data_ != nullptr; }

    // For who cannot allocate where it declares.
    bool Allocate(size_t size) {
        Free();
        data_ = static_cast<u8*>(calloc(1, size));
        return data_ != nullptr;
    }

    void Free() {
        free(data_);
        data_ = nullptr;
    }

 private:
    u8* data_ = nullptr;
};

// A linked list and the function that frees it with whatever its nodes hold; null is taken.
template <typename Node, void (*FreeAll)(Node*)>
class OwnedList {
 public:
    explicit OwnedList(Node* first = nullptr) : first_(first) {}
    OwnedList(const OwnedList&) = delete;
    OwnedList& operator=(const OwnedList&) = delete;
    ~OwnedList() { FreeAll(first_); }

    explicit operator bool() const { return first_ != nullptr; }
    Node* Get() const { return first_; }
    Node*& First() { return first_; }
    Node* Release() {
        Node* first = first_;
        first_ = nullptr;
        return first;
    }

 private:
    Node* first_;
};

// A record that outlives the call: zero-filled, given back with free(3) or never.
template <typename T>
T* NewZeroed() {
    return static_cast<T*>(calloc(1, sizeof(T)));
}

}  // namespace vimbra

#endif
