/* The sysroot's Python as a program of this machine: SYSROOT/usr/bin/python3-armhf.
 *
 * Runs SYSROOT/usr/bin/python3.11 with qemu-arm. It lies inside the sysroot and passes its
 * own path as the program's name, so that sys.executable is a file that can be executed
 * and sys.prefix is the sysroot's.
 *
 * LD_PRELOAD and LD_LIBRARY_PATH name libraries for the guest. They are handed on to it and
 * taken away from qemu-arm, which is a program of this machine and cannot load them. (A
 * comma in their values is not possible: qemu-arm separates variables by it.)
 *
 * This program is linked statically, so that it is not bothered by them itself.
 */
#define _GNU_SOURCE
#include <errno.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

static char self[PATH_MAX];

static char* join(const char* first, const char* second) {
  char* text;
  if (asprintf(&text, "%s%s", first, second) < 0) abort();
  return text;
}

int main(int argc, char** argv) {
  static const char* const guest_variables[] = {"LD_PRELOAD", "LD_LIBRARY_PATH"};
  enum { kGuestVariables = sizeof guest_variables / sizeof *guest_variables };

  const ssize_t size = readlink("/proc/self/exe", self, sizeof self - 1);
  if (size < 0) {
    perror("python3-armhf: /proc/self/exe");
    return 127;
  }
  char* sysroot = join(self, "");
  for (int up = 0; up < 3; ++up) *strrchr(sysroot, '/') = '\0';

  char** command = calloc((size_t)argc + 2 * kGuestVariables + 8, sizeof *command);
  if (command == NULL) abort();
  int n = 0;
  command[n++] = "qemu-arm";
  command[n++] = "-L";
  command[n++] = sysroot;
  command[n++] = "-0";
  command[n++] = self;
  for (int i = 0; i < kGuestVariables; ++i) {
    const char* value = getenv(guest_variables[i]);
    if (value == NULL) continue;
    command[n++] = "-E";
    command[n++] = join(join(guest_variables[i], "="), value);
    unsetenv(guest_variables[i]);
  }
  command[n++] = join(sysroot, "/usr/bin/python3.11");
  for (int i = 1; i < argc; ++i) command[n++] = argv[i];
  execvp(command[0], command);
  fprintf(stderr, "python3-armhf: %s: %s\n", command[0], strerror(errno));
  return 127;
}
