#include "slab.h"

#include <cstdlib>
#include <cstring>
#include <new>

namespace vu::store {

namespace {

char* allocate_or_throw(std::size_t size) {
  void* const block = std::malloc(size);
  if (block == nullptr) throw std::bad_alloc();
  return static_cast<char*>(block);
}

}  // namespace

Slab::Slab() : pages_(1) { with_room_.fill(kNoPage); }  // no cell is called 0

Slab::~Slab() {
  // Blocks outside pages are released by their owners before.
  for (const Page& page : pages_) std::free(page.base);
}

Cell Slab::allocate(std::size_t size) {
  if (size <= kLargestCell) return allocate_cell(units(size), units(size));
  static_assert(sizeof(char*) <= kUnit);
  const Cell cell = allocate_cell(kIndirect, 1);
  const Page& page = pages_[cell >> kUnitBits];
  char* const holder = page.base + (cell & kUnitMask) * kUnit;
  char* block = static_cast<char*>(std::malloc(size));
  std::memcpy(holder, &block, sizeof(block));
  if (block == nullptr) {
    release(cell);
    throw std::bad_alloc();
  }
  return cell;
}

Cell Slab::allocate_cell(std::size_t list, std::size_t cell_units) {
  std::uint32_t index = with_room_[list];
  if (index == kNoPage) index = add_page(list, cell_units);
  Page& page = pages_[index];
  std::uint16_t unit = page.free_unit;
  if (unit != kNoUnit) {
    std::memcpy(&page.free_unit, page.base + unit * kUnit, sizeof(page.free_unit));
  } else {
    unit = page.fresh_unit;
    page.fresh_unit = static_cast<std::uint16_t>(page.fresh_unit + page.cell_units);
  }
  ++page.used;
  if (!has_room(page)) unlink(index);
  return index << kUnitBits | unit;
}

std::uint32_t Slab::add_page(std::size_t list, std::size_t cell_units) {
  char* const base = allocate_or_throw(kPageSize);
  std::uint32_t index = free_page_;
  if (index != kNoPage) {
    free_page_ = pages_[index].next;
  } else {
    try {
      if (pages_.size() == kMostPages) throw std::bad_alloc();
      pages_.emplace_back();
    } catch (const std::bad_alloc&) {
      std::free(base);
      throw;
    }
    index = static_cast<std::uint32_t>(pages_.size() - 1);
  }
  Page& page = pages_[index];
  page = Page();
  page.base = base;
  page.cell_units = static_cast<std::uint16_t>(cell_units);
  page.indirect = list == kIndirect;
  bytes_ += kPageSize;
  link(index);
  return index;
}

void Slab::release(Cell cell) noexcept {
  const std::uint32_t index = cell >> kUnitBits;
  const auto unit = static_cast<std::uint16_t>(cell & kUnitMask);
  Page& page = pages_[index];
  char* const block = page.base + unit * kUnit;
  if (page.indirect) {
    char* outside = nullptr;
    std::memcpy(&outside, block, sizeof(outside));
    std::free(outside);
  }
  const bool had_room = has_room(page);
  std::memcpy(block, &page.free_unit, sizeof(page.free_unit));
  page.free_unit = unit;
  --page.used;
  if (!had_room) link(index);
  if (page.used == 0) {
    unlink(index);
    std::free(page.base);
    bytes_ -= kPageSize;
    page = Page();
    page.next = free_page_;
    free_page_ = index;
  }
}

void Slab::link(std::uint32_t index) noexcept {
  std::uint32_t& first = with_room_[list_of(pages_[index])];
  pages_[index].previous = kNoPage;
  pages_[index].next = first;
  if (first != kNoPage) pages_[first].previous = index;
  first = index;
}

void Slab::unlink(std::uint32_t index) noexcept {
  Page& page = pages_[index];
  (page.previous != kNoPage ? pages_[page.previous].next : with_room_[list_of(page)]) = page.next;
  if (page.next != kNoPage) pages_[page.next].previous = page.previous;
  page.previous = kNoPage;
  page.next = kNoPage;
}

}  // namespace vu::store
