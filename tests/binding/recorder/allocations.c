/* Watches the allocations of one loaded library by redirecting its references to malloc,
 * calloc and free, which works alike with and without a sanitizer's allocator below. */
#define _GNU_SOURCE
#include "allocations.h"

#include <dlfcn.h>
#include <elf.h>
#include <link.h>
#include <stdbool.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#include "recorder.h"

#if UINTPTR_MAX > 0xffffffffu
#define SYMBOL_INDEX(info) ELF64_R_SYM(info)
#else
#define SYMBOL_INDEX(info) ELF32_R_SYM(info)
#endif

typedef struct {
  void* address;
  size_t size;
  bool taken;
} Block;

enum { BLOCK_LIMIT = 4096 };

static Block blocks[BLOCK_LIMIT];
static int block_count;
static int wrong_frees;
static int allocations;
static int allocations_until_failure;

static Block* find(const void* address) {
  for (int i = 0; i < block_count; ++i)
    if (blocks[i].address == address) return &blocks[i];
  return NULL;
}

static void forget(Block* block) { *block = blocks[--block_count]; }

static void* remember(void* address, size_t size) {
  if (address == NULL) return NULL;
  if (block_count == BLOCK_LIMIT) abort();
  blocks[block_count++] = (Block){address, size, false};
  return address;
}

static bool allocation_fails(void) {
  ++allocations;
  return allocations_until_failure > 0 && --allocations_until_failure == 0;
}

static void* watched_malloc(size_t size) {
  return allocation_fails() ? NULL : remember(malloc(size), size);
}

static void* watched_calloc(size_t count, size_t size) {
  return allocation_fails() ? NULL : remember(calloc(count, size), count * size);
}

static void watched_free(void* address) {
  if (address == NULL) return;
  Block* block = find(address);
  if (block == NULL || block->taken) {
    ++wrong_frees; /* and not done, so that the test lives to tell */
    return;
  }
  forget(block);
  free(address);
}

void allocations_take(void* block) {
  if (block == NULL) return;
  Block* known = find(block);
  if (known == NULL)
    ++wrong_frees; /* not from malloc */
  else
    known->taken = true;
}

void allocations_free_taken(void) {
  for (int i = block_count; i-- > 0;) {
    if (!blocks[i].taken) continue;
    free(blocks[i].address);
    forget(&blocks[i]);
  }
}

int recorder_live_blocks(void) {
  int live = 0;
  for (int i = 0; i < block_count; ++i) live += blocks[i].taken ? 0 : 1;
  return live;
}

size_t recorder_live_bytes(void) {
  size_t live = 0;
  for (int i = 0; i < block_count; ++i) live += blocks[i].taken ? 0 : blocks[i].size;
  return live;
}

int recorder_taken_blocks(void) { return block_count - recorder_live_blocks(); }
int recorder_wrong_frees(void) { return wrong_frees; }
int recorder_allocations(void) { return allocations; }
void recorder_fail_allocation(int n) { allocations_until_failure = n; }

void recorder_free_blocks(void) {
  while (block_count > 0) free(blocks[--block_count].address);
  wrong_frees = 0;
}

static uintptr_t replacement(const char* name) {
  if (strcmp(name, "malloc") == 0) return (uintptr_t)watched_malloc;
  if (strcmp(name, "calloc") == 0) return (uintptr_t)watched_calloc;
  if (strcmp(name, "free") == 0) return (uintptr_t)watched_free;
  return 0;
}

/* Relocated tables may lie in pages that are read-only once the library is loaded. */
static void write_word(uintptr_t* where, uintptr_t value) {
  const uintptr_t page = (uintptr_t)sysconf(_SC_PAGESIZE);
  void* start = (void*)((uintptr_t)where & ~(page - 1));
  if (mprotect(start, page, PROT_READ | PROT_WRITE) != 0) abort();
  *where = value;
}

typedef struct {
  const char* suffix;
  int redirected;
} Search;

typedef struct {
  uintptr_t base;
  const ElfW(Sym) * symbols;
  const char* names;
} Library;

static int redirect(const Library* library, uintptr_t offset, size_t symbol) {
  if (symbol == 0) return 0;
  const uintptr_t value = replacement(library->names + library->symbols[symbol].st_name);
  if (value == 0) return 0;
  write_word((uintptr_t*)(library->base + offset), value);
  return 1;
}

static int redirect_table(const Library* library, uintptr_t table, size_t bytes, bool addends) {
  int redirected = 0;
  if (table == 0) return 0;
  if (addends) {
    const ElfW(Rela)* entries = (const ElfW(Rela)*)table;
    for (size_t i = 0; i < bytes / sizeof *entries; ++i)
      redirected += redirect(library, entries[i].r_offset, SYMBOL_INDEX(entries[i].r_info));
  } else {
    const ElfW(Rel)* entries = (const ElfW(Rel)*)table;
    for (size_t i = 0; i < bytes / sizeof *entries; ++i)
      redirected += redirect(library, entries[i].r_offset, SYMBOL_INDEX(entries[i].r_info));
  }
  return redirected;
}

static int redirect_library(const ElfW(Dyn) * dynamic, uintptr_t base) {
  Library library = {base, NULL, NULL};
  uintptr_t plain = 0, with_addends = 0, calls = 0;
  size_t plain_bytes = 0, with_addends_bytes = 0, calls_bytes = 0;
  bool calls_have_addends = false;
  for (; dynamic->d_tag != DT_NULL; ++dynamic) {
    const uintptr_t pointer = (uintptr_t)dynamic->d_un.d_ptr;
    const size_t value = (size_t)dynamic->d_un.d_val;
    switch (dynamic->d_tag) {
      case DT_SYMTAB:
        library.symbols = (const ElfW(Sym)*)pointer;
        break;
      case DT_STRTAB:
        library.names = (const char*)pointer;
        break;
      case DT_REL:
        plain = pointer;
        break;
      case DT_RELSZ:
        plain_bytes = value;
        break;
      case DT_RELA:
        with_addends = pointer;
        break;
      case DT_RELASZ:
        with_addends_bytes = value;
        break;
      case DT_JMPREL:
        calls = pointer;
        break;
      case DT_PLTRELSZ:
        calls_bytes = value;
        break;
      case DT_PLTREL:
        calls_have_addends = value == DT_RELA;
        break;
      default:
        break;
    }
  }
  return redirect_table(&library, plain, plain_bytes, false) +
         redirect_table(&library, with_addends, with_addends_bytes, true) +
         redirect_table(&library, calls, calls_bytes, calls_have_addends);
}

static int visit(struct dl_phdr_info* info, size_t size, void* data) {
  Search* search = data;
  (void)size;
  const size_t length = strlen(info->dlpi_name), wanted = strlen(search->suffix);
  if (length < wanted || strcmp(info->dlpi_name + length - wanted, search->suffix) != 0) return 0;
  for (int i = 0; i < info->dlpi_phnum; ++i) {
    if (info->dlpi_phdr[i].p_type != PT_DYNAMIC) continue;
    search->redirected = redirect_library(
        (const ElfW(Dyn)*)(info->dlpi_addr + info->dlpi_phdr[i].p_vaddr), info->dlpi_addr);
  }
  return 1;
}

int recorder_watch(const char* suffix) {
  Search search = {suffix, 0};
  dl_iterate_phdr(visit, &search);
  return search.redirected;
}
