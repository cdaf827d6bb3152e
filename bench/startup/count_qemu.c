/* A plugin for qemu that counts the instructions of the program that it runs, and writes the
 * number to the file that COUNT_TO names. To be loaded by QEMU_PLUGIN=FILE.
 *
 * qemu's header for plugins is in no package; what is used of it stands here.
 */
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

typedef uint64_t qemu_plugin_id_t;
struct qemu_plugin_tb; /* a block of translated instructions */
enum qemu_plugin_op { QEMU_PLUGIN_INLINE_ADD_U64 };

void qemu_plugin_register_vcpu_tb_trans_cb(qemu_plugin_id_t id,
                                           void (*call)(qemu_plugin_id_t,
                                                        struct qemu_plugin_tb*));
size_t qemu_plugin_tb_n_insns(const struct qemu_plugin_tb* tb);
void qemu_plugin_register_vcpu_tb_exec_inline(struct qemu_plugin_tb* tb, enum qemu_plugin_op op,
                                              void* counter, uint64_t by);
void qemu_plugin_register_atexit_cb(qemu_plugin_id_t id, void (*call)(qemu_plugin_id_t, void*),
                                    void* user);

/* What qemu looks for. */
extern const int qemu_plugin_version;
int qemu_plugin_install(qemu_plugin_id_t id, const void* info, int argc, char** argv);

const int qemu_plugin_version = 1;

static uint64_t executed;

static void translated(qemu_plugin_id_t id, struct qemu_plugin_tb* tb) {
  (void)id;
  qemu_plugin_register_vcpu_tb_exec_inline(tb, QEMU_PLUGIN_INLINE_ADD_U64, &executed,
                                           qemu_plugin_tb_n_insns(tb));
}

static void ended(qemu_plugin_id_t id, void* user) {
  (void)id;
  (void)user;
  const char* const name = getenv("COUNT_TO");
  FILE* const file = name == NULL ? NULL : fopen(name, "w");
  if (file == NULL) return;
  fprintf(file, "%llu\n", (unsigned long long)executed);
  fclose(file);
}

int qemu_plugin_install(qemu_plugin_id_t id, const void* info, int argc, char** argv) {
  (void)info;
  (void)argc;
  (void)argv;
  qemu_plugin_register_vcpu_tb_trans_cb(id, translated);
  qemu_plugin_register_atexit_cb(id, ended, NULL);
  return 0;
}
