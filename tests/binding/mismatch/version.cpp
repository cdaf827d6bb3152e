// Stands in for Py_GetVersion in a second build of the module, which so believes to run in
// the interpreter version that the environment variable VU_MOM_TEST_VERSION names.
#include <cstdlib>

extern "C" const char* vu_mom_test_version(void);

extern "C" const char* vu_mom_test_version(void) {
  const char* version = std::getenv("VU_MOM_TEST_VERSION");
  return version == nullptr ? "2.7.18 (none was named)" : version;
}
