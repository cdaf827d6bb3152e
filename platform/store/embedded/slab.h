// Memory for very many small blocks: no header per block, and names of 32 bits.
//
// Blocks of up to 1 KiB lie in pages of cells of one size, a multiple of 8. Larger ones
// come from malloc, and a cell holds their address. A page without used cells goes back.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace vu::store {

// Names a block; 0 names none.
using Cell = std::uint32_t;

class Slab {
 public:
  Slab();
  Slab(const Slab&) = delete;
  Slab& operator=(const Slab&) = delete;
  ~Slab();

  // A block of `size` bytes, aligned to 8. Throws std::bad_alloc with nothing changed.
  Cell allocate(std::size_t size);
  void release(Cell cell) noexcept;

  char* at(Cell cell) const noexcept {
    const Page& page = pages_[cell >> kUnitBits];
    char* const block = page.base + (cell & kUnitMask) * kUnit;
    return page.indirect ? *static_cast<char**>(static_cast<void*>(block)) : block;
  }

  // Whether blocks of these sizes are the same cells.
  static bool same_cell(std::size_t one, std::size_t other) {
    return one <= kLargestCell && other <= kLargestCell && units(one) == units(other);
  }

  std::size_t bytes() const { return bytes_; }

 private:
  static constexpr std::size_t kUnit = 8;
  static constexpr unsigned kUnitBits = 11;
  static constexpr std::uint32_t kUnitMask = (1u << kUnitBits) - 1;
  static constexpr std::size_t kPageSize = kUnit << kUnitBits;
  static constexpr std::size_t kLargestCell = 1024;
  static constexpr std::size_t kIndirect = 0;  // the list of pages of addresses
  static constexpr std::uint16_t kNoUnit = 0xFFFF;
  static constexpr std::uint32_t kNoPage = 0xFFFFFFFF;
  static constexpr std::uint32_t kMostPages = 1u << (32 - kUnitBits);

  struct Page {
    char* base = nullptr;
    std::uint32_t previous = kNoPage;  // among the pages of this cell size with room
    std::uint32_t next = kNoPage;
    std::uint16_t cell_units = 0;
    std::uint16_t free_unit = kNoUnit;  // released cells, each holding the next one's unit
    std::uint16_t fresh_unit = 0;       // from here on cells were never used
    std::uint16_t used = 0;
    bool indirect = false;
  };

  static std::size_t units(std::size_t size) { return size == 0 ? 1 : (size + kUnit - 1) / kUnit; }
  std::size_t list_of(const Page& page) const {
    return page.indirect ? kIndirect : page.cell_units;
  }
  static bool has_room(const Page& page) {
    return page.free_unit != kNoUnit ||
           std::size_t{page.fresh_unit} + page.cell_units <= (std::size_t{1} << kUnitBits);
  }
  Cell allocate_cell(std::size_t list, std::size_t cell_units);
  std::uint32_t add_page(std::size_t list, std::size_t cell_units);
  void link(std::uint32_t index) noexcept;
  void unlink(std::uint32_t index) noexcept;

  std::vector<Page> pages_;
  std::uint32_t free_page_ = kNoPage;  // unused entries of pages_, linked by `next`
  std::array<std::uint32_t, kLargestCell / kUnit + 1> with_room_;
  std::size_t bytes_ = 0;
};

}  // namespace vu::store
