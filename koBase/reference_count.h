// Intrusive reference counting: the counter in the object, and the handle that moves it.
#pragma once

#include "koBase/export.h"

#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <utility>

namespace ko {

/// Base of every shared object. The counter starts at 0: whoever creates an object takes it into a
/// Reference, or deletes it.
///
///   threads   the counter is not atomic: an object and its handles stay on one thread while
///             references are taken or dropped
class KOBASE_EXPORT ReferenceCount {
public:
    ReferenceCount() = default;
    ReferenceCount(ReferenceCount const&) = delete;
    ReferenceCount& operator=(ReferenceCount const&) = delete;
    virtual ~ReferenceCount();

    std::uint32_t referenceCount() const { return count_; }

    void addReference() const { ++count_; }

    /// Deletes the object when the last reference goes.
    void removeReference() const
    {
        if (--count_ == 0)
            delete this;
    }

private:
    // Bookkeeping, not part of the value: handles to const objects count too.
    mutable std::uint32_t count_ = 0;
};

template <class From, class To>
concept PointerConvertible = std::is_convertible_v<From*, To*>;

/// A handle that keeps a counted object alive. Converts to handles of base classes and of const;
/// moving it leaves the count alone.
template <class T>
class Reference {
public:
    Reference() = default;

    // Implicit, as conversions of pointers are. NOLINTBEGIN(google-explicit-constructor)
    Reference(std::nullptr_t) {}
    Reference(T* object) : object_(object) { acquire(); }
    Reference(Reference const& other) : object_(other.object_) { acquire(); }
    Reference(Reference&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}

    // By value: a copy counts on its way in, a moved handle does not.
    template <PointerConvertible<T> U>
    Reference(Reference<U> other) noexcept : object_(std::exchange(other.object_, nullptr))
    {
    }
    // NOLINTEND(google-explicit-constructor)

    ~Reference()
    {
        if (object_ != nullptr)
            object_->removeReference();
    }

    // By value: the old object goes last, so a handle may be assigned from something that it keeps alive.
    Reference& operator=(Reference other) noexcept
    {
        std::swap(object_, other.object_);
        return *this;
    }

    T* get() const { return object_; }
    T* operator->() const { return object_; }
    T& operator*() const { return *object_; }
    explicit operator bool() const { return object_ != nullptr; }

    template <class U>
    bool operator==(Reference<U> const& other) const
    {
        return object_ == other.get();
    }
    bool operator==(T const* object) const { return object_ == object; }
    bool operator==(std::nullptr_t) const { return object_ == nullptr; }

private:
    template <class U>
    friend class Reference;

    void acquire()
    {
        if (object_ != nullptr)
            object_->addReference();
    }

    T* object_ = nullptr;
};

}  // namespace ko
