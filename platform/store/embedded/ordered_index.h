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
#include <type_traits>
#include <utility>

namespace vu::store {

template <typename T>
class OrderedIndex {
  static_assert(std::is_trivially_copyable_v<T>);

  static constexpr std::uint32_t kLeafSize = 61;
  static constexpr std::uint32_t kInnerSize = 32;
  static constexpr std::size_t kMostInner = 16;  // levels of inner nodes

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
      node = inner->children[child_for(*inner, [&](T v) { return compare(v) < 0; })];
    }
    const Leaf* leaf = static_cast<const Leaf*>(node);
    return Cursor(leaf, partition(leaf->values, leaf->size, [&](T v) { return compare(v) < 0; }));
  }

  // How many values are before what is sought.
  template <typename Compare>
  std::size_t rank(Compare compare) const {
    if (root_ == nullptr) return 0;
    std::size_t before = 0;
    const void* node = root_;
    for (unsigned level = inner_levels_; level > 0; --level) {
      const Inner* inner = static_cast<const Inner*>(node);
      const std::uint32_t child = child_for(*inner, [&](T v) { return compare(v) < 0; });
      for (std::uint32_t i = 0; i < child; ++i) before += inner->counts[i];
      node = inner->children[child];
    }
    const Leaf* leaf = static_cast<const Leaf*>(node);
    return before + partition(leaf->values, leaf->size, [&](T v) { return compare(v) < 0; });
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
        partition(leaf->values, leaf->size, [&](T v) { return compare(v) < 0; });
    if (leaf->size < kLeafSize) {
      insert_value(*leaf, index, value);
      ++size_;
      for (unsigned depth = inner_levels_; depth > 0; --depth) {
        Step& step = path[depth - 1];
        ++step.node->counts[step.child];
        step.node->first[step.child] = first_below(*step.node, step.child, inner_levels_ - depth);
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
        partition(leaf->values, leaf->size, [&](T v) { return compare(v) < 0; });
    if (index == leaf->size || compare(leaf->values[index]) != 0) return false;
    leaf->values[index] = value;
    for (unsigned depth = inner_levels_; depth > 0; --depth) {
      Step& step = path[depth - 1];
      step.node->first[step.child] = first_below(*step.node, step.child, inner_levels_ - depth);
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
        partition(leaf->values, leaf->size, [&](T v) { return compare(v) < 0; });
    if (index == leaf->size || compare(leaf->values[index]) != 0) return false;
    move(leaf->values + index, leaf->values + index + 1, leaf->size - index - 1);
    --leaf->size;
    --size_;
    for (unsigned depth = inner_levels_; depth > 0; --depth) {
      shrink(path[depth - 1], inner_levels_ - depth);
    }
    lower_root();
    return true;
  }

  void clear() noexcept {
    if (root_ != nullptr) destroy(root_, inner_levels_);
    root_ = nullptr;
    inner_levels_ = 0;
    size_ = 0;
  }

  std::size_t bytes() const { return root_ == nullptr ? 0 : bytes_below(root_, inner_levels_); }

  // For tests: whether counts, first values and links fit together.
  bool consistent() const {
    if (root_ == nullptr) return size_ == 0;
    const Leaf* expected = leftmost(root_, inner_levels_);
    if (expected->previous != nullptr) return false;
    return consistent_below(root_, inner_levels_, expected) == size_ && expected == nullptr;
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
      while (depth > 0 && path[depth - 1].node->size == kInnerSize) --depth;
      // One for each full node, and a root above the root where that was full too.
      const unsigned needed = inner_levels - depth + (depth == 0 ? 1 : 0);
      for (; count < needed; ++count) inner[count] = std::make_unique<Inner>();
    }
    Inner* take_inner() { return inner[--count].release(); }

    std::unique_ptr<Leaf> leaf;
    std::array<std::unique_ptr<Inner>, kMostInner + 1> inner;
    unsigned count = 0;
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

  // The leaf where what is sought is, or would be, with the way to it.
  template <typename Compare>
  Leaf* descend(Compare compare, Path& path) const {
    void* node = root_;
    for (unsigned depth = 0; depth < inner_levels_; ++depth) {
      Inner* const inner = static_cast<Inner*>(node);
      path[depth].node = inner;
      path[depth].child = child_for(*inner, [&](T v) { return compare(v) <= 0; });
      node = inner->children[path[depth].child];
    }
    return static_cast<Leaf*>(node);
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
      insert_value(*right_leaf, index - kept, value);
    } else {
      insert_value(leaf, index, value);
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
        if (node.size < kInnerSize) {
          insert_child(node, child + 1, right_first, right_count, right);
        } else {
          new_right = spares.take_inner();
          const bool at_end = append && child + 1 == node.size;
          move_children(node, at_end ? node.size : node.size / 2, *new_right);
          if (child + 1 > node.size || at_end) {
            insert_child(*new_right, child + 1 - node.size, right_first, right_count, right);
          } else {
            insert_child(node, child + 1, right_first, right_count, right);
          }
        }
      }
      left = &node;
      left_first = node.first[0];
      left_count = count_of(node);
      right = new_right;
      if (new_right != nullptr) {
        right_first = new_right->first[0];
        right_count = count_of(*new_right);
      }
    }
    if (right != nullptr) {
      Inner* const root = spares.take_inner();
      insert_child(*root, 0, left_first, left_count, left);
      insert_child(*root, 1, right_first, right_count, right);
      root_ = root;
      ++inner_levels_;
    }
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

  // After an erase below `step`: corrects its entry; drops the child where it is empty
  // and joins it with a neighbour where it has become small and both fit into one.
  static void shrink(Step& step, unsigned levels) noexcept {
    Inner& node = *step.node;
    const std::uint32_t child = step.child;
    const std::uint32_t size = size_of_child(node, child, levels);
    if (size == 0) {
      if (levels == 0) {
        remove_leaf(static_cast<Leaf*>(node.children[child]));
      } else {
        delete static_cast<Inner*>(node.children[child]);
      }
      erase_child(node, child);
      return;
    }
    --node.counts[child];
    node.first[child] = first_below(node, child, levels);
    const std::uint32_t most = levels == 0 ? kLeafSize : kInnerSize;
    if (size >= most / 4) return;
    if (child + 1 < node.size && size + size_of_child(node, child + 1, levels) <= most) {
      join(node, child, levels);
    } else if (child > 0 && size + size_of_child(node, child - 1, levels) <= most) {
      join(node, child - 1, levels);
    }
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

  void* root_ = nullptr;
  unsigned inner_levels_ = 0;
  std::size_t size_ = 0;
};

}  // namespace vu::store
