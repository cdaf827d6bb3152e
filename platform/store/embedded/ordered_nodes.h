// The nodes of an ordered_index.h: what is done to one node, or to all below one.
//
// `levels` counts levels of inner nodes, from the node on that a function is given, or from its
// child where it is given one; 0 is a leaf.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace vu::store {

template <typename T>
struct OrderedNodes {
  static_assert(std::is_trivially_copyable_v<T>);

  static constexpr std::uint32_t kLeafSize = 61;
  static constexpr std::uint32_t kInnerSize = 32;

  struct Leaf {
    Leaf* previous = nullptr;
    Leaf* next = nullptr;
    std::uint32_t size = 0;
    T values[kLeafSize];
  };
  struct Inner {
    std::uint32_t size = 0;
    T first[kInnerSize];  // the first value below each child
    std::size_t counts[kInnerSize];
    void* children[kInnerSize];
  };

  // The index of the first value for which `before` does not hold.
  template <typename Before>
  static std::uint32_t partition(const T* values, std::uint32_t size, Before before) {
    std::uint32_t low = 0;
    while (low < size) {
      const std::uint32_t middle = low + (size - low) / 2;
      if (before(values[middle])) {
        low = middle + 1;
      } else {
        size = middle;
      }
    }
    return low;
  }

  // The last child whose first value satisfies `before`, or the first child.
  template <typename Before>
  static std::uint32_t child_for(const Inner& inner, Before before) {
    const std::uint32_t behind = partition(inner.first, inner.size, before);
    return behind == 0 ? 0 : behind - 1;
  }

  template <typename U>
  static void move(U* to, const U* from, std::uint32_t count) {
    std::memmove(to, from, count * sizeof(U));
  }

  static void insert_value(Leaf& leaf, std::uint32_t index, T value) {
    move(leaf.values + index + 1, leaf.values + index, leaf.size - index);
    leaf.values[index] = value;
    ++leaf.size;
  }

  static void insert_child(Inner& inner, std::uint32_t index, T first, std::size_t count,
                           void* child) {
    const std::uint32_t behind = inner.size - index;
    move(inner.first + index + 1, inner.first + index, behind);
    move(inner.counts + index + 1, inner.counts + index, behind);
    move(inner.children + index + 1, inner.children + index, behind);
    inner.first[index] = first;
    inner.counts[index] = count;
    inner.children[index] = child;
    ++inner.size;
  }

  static void erase_child(Inner& inner, std::uint32_t index) {
    const std::uint32_t behind = inner.size - index - 1;
    move(inner.first + index, inner.first + index + 1, behind);
    move(inner.counts + index, inner.counts + index + 1, behind);
    move(inner.children + index, inner.children + index + 1, behind);
    --inner.size;
  }

  // Moves the children from `index` on to the end of another node.
  static void move_children(Inner& from, std::uint32_t index, Inner& to) {
    const std::uint32_t count = from.size - index;
    std::memcpy(to.first + to.size, from.first + index, count * sizeof(T));
    std::memcpy(to.counts + to.size, from.counts + index, count * sizeof(std::size_t));
    std::memcpy(to.children + to.size, from.children + index, count * sizeof(void*));
    to.size += count;
    from.size = index;
  }

  static std::size_t count_of(const Inner& inner) {
    std::size_t count = 0;
    for (std::uint32_t i = 0; i < inner.size; ++i) count += inner.counts[i];
    return count;
  }

  // The first value below a child; `levels` of inner nodes lie below `inner`.
  static T first_below(const Inner& inner, std::uint32_t child, unsigned levels) {
    return levels == 0 ? static_cast<const Leaf*>(inner.children[child])->values[0]
                       : static_cast<const Inner*>(inner.children[child])->first[0];
  }

  static std::uint32_t size_of_child(const Inner& inner, std::uint32_t child, unsigned levels) {
    return levels == 0 ? static_cast<const Leaf*>(inner.children[child])->size
                       : static_cast<const Inner*>(inner.children[child])->size;
  }

  static void remove_leaf(Leaf* leaf) {
    if (leaf->previous != nullptr) leaf->previous->next = leaf->next;
    if (leaf->next != nullptr) leaf->next->previous = leaf->previous;
    delete leaf;
  }

  // Moves all of child `left` + 1 into child `left`.
  static void join(Inner& node, std::uint32_t left, unsigned levels) noexcept {
    if (levels == 0) {
      Leaf* const to = static_cast<Leaf*>(node.children[left]);
      Leaf* const from = static_cast<Leaf*>(node.children[left + 1]);
      std::memcpy(to->values + to->size, from->values, from->size * sizeof(T));
      to->size += from->size;
      remove_leaf(from);
    } else {
      Inner* const from = static_cast<Inner*>(node.children[left + 1]);
      move_children(*from, 0, *static_cast<Inner*>(node.children[left]));
      delete from;
    }
    node.counts[left] += node.counts[left + 1];
    erase_child(node, left + 1);
  }

  static void destroy(void* node, unsigned levels) noexcept {
    if (levels == 0) {
      delete static_cast<Leaf*>(node);
      return;
    }
    Inner* const inner = static_cast<Inner*>(node);
    for (std::uint32_t i = 0; i < inner->size; ++i) destroy(inner->children[i], levels - 1);
    delete inner;
  }

  static std::size_t bytes_below(const void* node, unsigned levels) {
    if (levels == 0) return sizeof(Leaf);
    const Inner* inner = static_cast<const Inner*>(node);
    std::size_t bytes = sizeof(Inner);
    for (std::uint32_t i = 0; i < inner->size; ++i) {
      bytes += bytes_below(inner->children[i], levels - 1);
    }
    return bytes;
  }

  static const Leaf* leftmost(const void* node, unsigned levels) {
    for (; levels > 0; --levels) node = static_cast<const Inner*>(node)->children[0];
    return static_cast<const Leaf*>(node);
  }

  // How many values lie below `node`; more than there can be where something is wrong.
  // `expected` is the next leaf of the chain.
  static std::size_t consistent_below(const void* node, unsigned levels, const Leaf*& expected) {
    constexpr std::size_t kWrong = ~std::size_t{0} / 2;
    if (levels == 0) {
      const Leaf* leaf = static_cast<const Leaf*>(node);
      if (leaf == nullptr || leaf != expected || leaf->size == 0 || leaf->size > kLeafSize)
        return kWrong;
      if (leaf->next != nullptr && leaf->next->previous != leaf) return kWrong;
      expected = leaf->next;
      return leaf->size;
    }
    const Inner* inner = static_cast<const Inner*>(node);
    if (inner->size == 0 || inner->size > kInnerSize) return kWrong;
    std::size_t count = 0;
    for (std::uint32_t i = 0; i < inner->size; ++i) {
      const T first = leftmost(inner->children[i], levels - 1)->values[0];
      if (std::memcmp(&first, &inner->first[i], sizeof(T)) != 0) return kWrong;
      const std::size_t below = consistent_below(inner->children[i], levels - 1, expected);
      if (below != inner->counts[i]) return kWrong;
      count += below;
    }
    return count;
  }
};

}  // namespace vu::store
