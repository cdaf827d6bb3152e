// An ordered sequence of small values that knows ranks: a B+ tree whose inner nodes
// count what lies below them. Finding, inserting, erasing, and going to a rank take
// logarithmic time; walking on from there takes constant time per value.
//
// The order is the caller's. Each operation takes a function compare(value) that says
// how a value lies to what is sought: negative before it, 0 it, positive behind it.
// An insert that throws std::bad_alloc has changed nothing; nothing else can fail.
#pragma once

#include <array>
#include <cassert>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <utility>

#include "ordered_nodes.h"

namespace vu::store {

template <typename T>
class OrderedIndex {
  using Nodes = OrderedNodes<T>;
  using Leaf = typename Nodes::Leaf;
  using Inner = typename Nodes::Inner;

  static constexpr std::size_t kMostInner = 16;  // levels of inner nodes

 public:
  OrderedIndex() = default;
  OrderedIndex(const OrderedIndex&) = delete;
  OrderedIndex& operator=(const OrderedIndex&) = delete;
  OrderedIndex(OrderedIndex&& other) noexcept
      : root_(std::exchange(other.root_, nullptr)),
        inner_levels_(std::exchange(other.inner_levels_, 0)),
        size_(std::exchange(other.size_, 0)) {}
  OrderedIndex& operator=(OrderedIndex&& other) noexcept {
    std::swap(root_, other.root_);
    std::swap(inner_levels_, other.inner_levels_);
    std::swap(size_, other.size_);
    return *this;
  }
  ~OrderedIndex() { clear(); }

  std::size_t size() const { return size_; }

  // A place in the sequence; invalid after any change.
  class Cursor {
   public:
    bool at_end() const { return leaf_ == nullptr; }
    T operator*() const {
      assert(!at_end());
      return leaf_->values[index_];
    }
    void advance() {
      if (++index_ == leaf_->size) {
        leaf_ = leaf_->next;
        index_ = 0;
      }
    }

   private:
    friend class OrderedIndex;
    Cursor(const Leaf* leaf, std::uint32_t index) : leaf_(leaf), index_(index) {
      if (leaf_ != nullptr && index_ == leaf_->size) {
        leaf_ = leaf_->next;
        index_ = 0;
      }
    }
    const Leaf* leaf_;
    std::uint32_t index_;
  };

  // The first value that is not before what is sought.
  template <typename Compare>
  Cursor lower_bound(Compare compare) const {
    if (root_ == nullptr) return Cursor(nullptr, 0);
    const void* node = root_;
    for (unsigned level = inner_levels_; level > 0; --level) {
      const Inner* inner = static_cast<const Inner*>(node);
      node = inner->children[Nodes::child_for(*inner, [&](T v) { return compare(v) < 0; })];
    }
    const Leaf* leaf = static_cast<const Leaf*>(node);
    return Cursor(leaf,
                  Nodes::partition(leaf->values, leaf->size, [&](T v) { return compare(v) < 0; }));
  }

  // How many values are before what is sought.
  template <typename Compare>
  std::size_t rank(Compare compare) const {
    if (root_ == nullptr) return 0;
    std::size_t before = 0;
    const void* node = root_;
    for (unsigned level = inner_levels_; level > 0; --level) {
      const Inner* inner = static_cast<const Inner*>(node);
      const std::uint32_t child = Nodes::child_for(*inner, [&](T v) { return compare(v) < 0; });
      for (std::uint32_t i = 0; i < child; ++i) before += inner->counts[i];
      node = inner->children[child];
    }
    const Leaf* leaf = static_cast<const Leaf*>(node);
    return before + Nodes::partition(leaf->values, leaf->size, [&](T v) { return compare(v) < 0; });
  }

  // The value at a rank from 0; the end where there are not so many.
  Cursor at(std::size_t rank) const {
    if (rank >= size_) return Cursor(nullptr, 0);
    const void* node = root_;
    for (unsigned level = inner_levels_; level > 0; --level) {
      const Inner* inner = static_cast<const Inner*>(node);
      std::uint32_t child = 0;
      while (rank >= inner->counts[child]) rank -= inner->counts[child++];
      node = inner->children[child];
    }
    return Cursor(static_cast<const Leaf*>(node), static_cast<std::uint32_t>(rank));
  }

  // Requires: no value inside for which compare is 0.
  template <typename Compare>
  void insert(Compare compare, T value) {
    if (root_ == nullptr) {
      Leaf* const leaf = new Leaf();
      leaf->values[0] = value;
      leaf->size = 1;
      root_ = leaf;
      size_ = 1;
      return;
    }
    Path path;
    Leaf* const leaf = descend(compare, path);
    const std::uint32_t index =
        Nodes::partition(leaf->values, leaf->size, [&](T v) { return compare(v) < 0; });
    if (leaf->size < Nodes::kLeafSize) {
      Nodes::insert_value(*leaf, index, value);
      ++size_;
      for (unsigned depth = inner_levels_; depth > 0; --depth) {
        Step& step = path[depth - 1];
        ++step.node->counts[step.child];
        step.node->first[step.child] =
            Nodes::first_below(*step.node, step.child, inner_levels_ - depth);
      }
      return;
    }
    Spares spares(path, inner_levels_);  // all that can fail
    split(path, spares, *leaf, index, value);
    ++size_;
  }

  // Puts `value` in the place of the value for which compare is 0. False where none is.
  template <typename Compare>
  bool replace(Compare compare, T value) noexcept {
    if (root_ == nullptr) return false;
    Path path;
    Leaf* const leaf = descend(compare, path);
    const std::uint32_t index =
        Nodes::partition(leaf->values, leaf->size, [&](T v) { return compare(v) < 0; });
    if (index == leaf->size || compare(leaf->values[index]) != 0) return false;
    leaf->values[index] = value;
    for (unsigned depth = inner_levels_; depth > 0; --depth) {
      Step& step = path[depth - 1];
      step.node->first[step.child] =
          Nodes::first_below(*step.node, step.child, inner_levels_ - depth);
    }
    return true;
  }

  // Erases the value for which compare is 0. False where none is.
  template <typename Compare>
  bool erase(Compare compare) noexcept {
    if (root_ == nullptr) return false;
    Path path;
    Leaf* const leaf = descend(compare, path);
    const std::uint32_t index =
        Nodes::partition(leaf->values, leaf->size, [&](T v) { return compare(v) < 0; });
    if (index == leaf->size || compare(leaf->values[index]) != 0) return false;
    Nodes::move(leaf->values + index, leaf->values + index + 1, leaf->size - index - 1);
    --leaf->size;
    --size_;
    for (unsigned depth = inner_levels_; depth > 0; --depth) {
      shrink(path[depth - 1], inner_levels_ - depth);
    }
    lower_root();
    return true;
  }

  void clear() noexcept {
    if (root_ != nullptr) Nodes::destroy(root_, inner_levels_);
    root_ = nullptr;
    inner_levels_ = 0;
    size_ = 0;
  }

  std::size_t bytes() const {
    return root_ == nullptr ? 0 : Nodes::bytes_below(root_, inner_levels_);
  }

  // For tests: whether counts, first values and links fit together.
  bool consistent() const {
    if (root_ == nullptr) return size_ == 0;
    const Leaf* expected = Nodes::leftmost(root_, inner_levels_);
    if (expected->previous != nullptr) return false;
    return Nodes::consistent_below(root_, inner_levels_, expected) == size_ && expected == nullptr;
  }

 private:
  struct Step {
    Inner* node = nullptr;
    std::uint32_t child = 0;
  };
  using Path = std::array<Step, kMostInner>;

  // The nodes that a split of a full leaf needs, from the leaf up.
  struct Spares {
    Spares(const Path& path, unsigned inner_levels) : leaf(std::make_unique<Leaf>()) {
      unsigned depth = inner_levels;
      while (depth > 0 && path[depth - 1].node->size == Nodes::kInnerSize) --depth;
      // One for each full node, and a root above the root where that was full too.
      const unsigned needed = inner_levels - depth + (depth == 0 ? 1 : 0);
      for (; count < needed; ++count) inner[count] = std::make_unique<Inner>();
    }
    Inner* take_inner() { return inner[--count].release(); }

    std::unique_ptr<Leaf> leaf;
    std::array<std::unique_ptr<Inner>, kMostInner + 1> inner;
    unsigned count = 0;
  };

  // The leaf where what is sought is, or would be, with the way to it.
  template <typename Compare>
  Leaf* descend(Compare compare, Path& path) const {
    void* node = root_;
    for (unsigned depth = 0; depth < inner_levels_; ++depth) {
      Inner* const inner = static_cast<Inner*>(node);
      path[depth].node = inner;
      path[depth].child = Nodes::child_for(*inner, [&](T v) { return compare(v) <= 0; });
      node = inner->children[path[depth].child];
    }
    return static_cast<Leaf*>(node);
  }

  void split(Path& path, Spares& spares, Leaf& leaf, std::uint32_t index, T value) noexcept {
    Leaf* const right_leaf = spares.leaf.release();
    right_leaf->previous = &leaf;
    right_leaf->next = leaf.next;
    if (leaf.next != nullptr) leaf.next->previous = right_leaf;
    // Values that arrive in order fill their leaves to the last place.
    const bool append = leaf.next == nullptr && index == leaf.size;
    leaf.next = right_leaf;
    const std::uint32_t kept = append ? leaf.size : leaf.size / 2;
    std::memcpy(right_leaf->values, leaf.values + kept, (leaf.size - kept) * sizeof(T));
    right_leaf->size = leaf.size - kept;
    leaf.size = kept;
    if (index > kept || append) {
      Nodes::insert_value(*right_leaf, index - kept, value);
    } else {
      Nodes::insert_value(leaf, index, value);
    }

    void* left = &leaf;
    void* right = right_leaf;  // not yet in a node, unless null
    T left_first = leaf.values[0];
    T right_first = right_leaf->values[0];
    std::size_t left_count = leaf.size;
    std::size_t right_count = right_leaf->size;
    for (unsigned depth = inner_levels_; depth > 0; --depth) {
      Inner& node = *path[depth - 1].node;
      const std::uint32_t child = path[depth - 1].child;
      node.first[child] = left_first;
      node.counts[child] = left_count;
      Inner* new_right = nullptr;
      if (right != nullptr) {
        if (node.size < Nodes::kInnerSize) {
          Nodes::insert_child(node, child + 1, right_first, right_count, right);
        } else {
          new_right = spares.take_inner();
          const bool at_end = append && child + 1 == node.size;
          Nodes::move_children(node, at_end ? node.size : node.size / 2, *new_right);
          if (child + 1 > node.size || at_end) {
            Nodes::insert_child(*new_right, child + 1 - node.size, right_first, right_count, right);
          } else {
            Nodes::insert_child(node, child + 1, right_first, right_count, right);
          }
        }
      }
      left = &node;
      left_first = node.first[0];
      left_count = Nodes::count_of(node);
      right = new_right;
      if (new_right != nullptr) {
        right_first = new_right->first[0];
        right_count = Nodes::count_of(*new_right);
      }
    }
    if (right != nullptr) {
      Inner* const root = spares.take_inner();
      Nodes::insert_child(*root, 0, left_first, left_count, left);
      Nodes::insert_child(*root, 1, right_first, right_count, right);
      root_ = root;
      ++inner_levels_;
    }
  }

  // After an erase below `step`: corrects its entry; drops the child where it is empty
  // and joins it with a neighbour where it has become small and both fit into one.
  static void shrink(Step& step, unsigned levels) noexcept {
    Inner& node = *step.node;
    const std::uint32_t child = step.child;
    const std::uint32_t size = Nodes::size_of_child(node, child, levels);
    if (size == 0) {
      if (levels == 0) {
        Nodes::remove_leaf(static_cast<Leaf*>(node.children[child]));
      } else {
        delete static_cast<Inner*>(node.children[child]);
      }
      Nodes::erase_child(node, child);
      return;
    }
    --node.counts[child];
    node.first[child] = Nodes::first_below(node, child, levels);
    const std::uint32_t most = levels == 0 ? Nodes::kLeafSize : Nodes::kInnerSize;
    if (size >= most / 4) return;
    if (child + 1 < node.size && size + Nodes::size_of_child(node, child + 1, levels) <= most) {
      Nodes::join(node, child, levels);
    } else if (child > 0 && size + Nodes::size_of_child(node, child - 1, levels) <= most) {
      Nodes::join(node, child - 1, levels);
    }
  }

  void lower_root() noexcept {
    while (inner_levels_ > 0) {
      Inner* const root = static_cast<Inner*>(root_);
      if (root->size > 1) return;
      if (root->size == 0) {
        clear();
        return;
      }
      root_ = root->children[0];
      --inner_levels_;
      delete root;
    }
    if (static_cast<Leaf*>(root_)->size == 0) clear();
  }

  void* root_ = nullptr;
  unsigned inner_levels_ = 0;
  std::size_t size_ = 0;
};

}  // namespace vu::store
