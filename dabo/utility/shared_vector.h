#pragma once

// A reference-counted view of elements that may share storage with other
// views. `shared_vector<float>` is the writable form; `shared_vector<const float>`,
// made from it by `freeze`, is the read-only form that topic arrays use.

#include <cassert>
#include <cstddef>
#include <initializer_list>
#include <memory>
#include <stdexcept>
#include <type_traits>
#include <utility>
#include <vector>

namespace orlo::dabo {

template <typename E, typename = void>
class shared_vector;

namespace detail {

/// The common part of both forms: storage, where this vector starts in it,
/// how many elements it has and how many the storage holds.
template <typename E>
class shared_vector_base {
public:
    using value_type = std::remove_const_t<E>;
    using element_type = E;
    using size_type = std::size_t;
    using iterator = E*;
    using const_iterator = const E*;

    size_type size() const noexcept { return m_count; }
    bool empty() const noexcept { return m_count == 0; }
    /// Index of the first element within the storage.
    size_type dataOffset() const noexcept { return m_offset; }
    /// Number of elements the storage has room for.
    size_type dataTotal() const noexcept { return m_total; }
    /// The storage itself, shared with every other view of it.
    const std::shared_ptr<E>& dataPtr() const noexcept { return m_data; }
    /// Address of element 0; null for a vector without storage.
    E* data() const noexcept { return m_data ? m_data.get() + m_offset : nullptr; }
    /// Whether this vector is the storage's only owner.
    bool unique() const noexcept { return m_data.use_count() <= 1; }

    E& operator[](size_type index) const noexcept { return data()[index]; }
    E* begin() const noexcept { return data(); }
    E* end() const noexcept { return data() + m_count; }

    /// A copy of the elements that owns its own memory.
    std::vector<value_type> toVector() const { return std::vector<value_type>(begin(), end()); }

protected:
    shared_vector_base() noexcept : m_data(), m_offset(0), m_count(0), m_total(0) {}

    shared_vector_base(std::shared_ptr<E> data, size_type offset, size_type count, size_type total)
        : m_data(std::move(data)), m_offset(offset), m_count(count), m_total(total) {
        _null_input();
    }

    /// Restores the invariants after construction from storage: a vector
    /// without storage is all zeros, one with storage never counts more
    /// elements than the storage holds.
    void _null_input() {
        if (!m_data) {
            m_offset = 0;
            m_count = 0;
            m_total = 0;
            return;
        }
        assert(m_count <= m_total);
    }

    /// Leaves this vector empty and without storage.
    void reset() noexcept {
        m_data.reset();
        m_offset = 0;
        m_count = 0;
        m_total = 0;
    }

    std::shared_ptr<E> m_data;
    size_type m_offset;
    size_type m_count;
    size_type m_total;
};

/// New storage holding copies of `count` elements from `first`.
template <typename E>
std::shared_ptr<E> copyToStorage(const std::remove_const_t<E>* first, std::size_t count) {
    if (count == 0) {
        return nullptr;
    }
    using Mutable = std::remove_const_t<E>;
    std::unique_ptr<Mutable[]> storage(new Mutable[count]);
    for (std::size_t i = 0; i < count; ++i) {
        storage[i] = first[i];
    }
    return std::shared_ptr<E>(storage.release(), std::default_delete<Mutable[]>());
}

}  // namespace detail

template <typename E, typename>
class shared_vector : public detail::shared_vector_base<E> {
    using Base = detail::shared_vector_base<E>;

public:
    using typename Base::size_type;
    using typename Base::value_type;

    /// An empty vector without storage.
    shared_vector() noexcept = default;

    /// A view of `count` elements from index `offset` of `data`, which has
    /// room for `total` elements.
    shared_vector(std::shared_ptr<E> data, size_type offset, size_type count, size_type total)
        : Base(std::move(data), offset, count, total) {}

    /// A view of all `count` elements of `data`.
    shared_vector(std::shared_ptr<E> data, size_type count) : Base(std::move(data), 0, count, count) {}

    /// New storage holding copies of `count` elements from `first`.
    shared_vector(const value_type* first, size_type count)
        : Base(detail::copyToStorage<E>(first, count), 0, count, count) {}

    /// New storage holding copies of `values`.
    explicit shared_vector(const std::vector<value_type>& values)
        : shared_vector(values.data(), values.size()) {}

    shared_vector(std::initializer_list<value_type> values)
        : shared_vector(values.begin(), values.size()) {}

    /// The elements `[offset, offset + count)` of this vector, sharing its storage.
    shared_vector slice(size_type offset, size_type count) const {
        return shared_vector(this->m_data, this->m_offset + offset, count, this->m_total);
    }

    template <typename F>
    friend shared_vector<const F> freeze(shared_vector<F>&& source);
};

/// Turns a writable vector into the read-only form, moving storage, offset,
/// count and capacity across. The source must own its storage alone, so that
/// nothing can write to elements that are now read-only.
template <typename E>
shared_vector<const E> freeze(shared_vector<E>&& source) {
    if (source.m_data.use_count() > 1) {
        throw std::runtime_error("Can't freeze non-unique vector");
    }
    shared_vector<const E> frozen(std::shared_ptr<const E>(std::move(source.m_data)), source.m_offset,
                                  source.m_count, source.m_total);
    source.reset();
    return frozen;
}

}  // namespace orlo::dabo
