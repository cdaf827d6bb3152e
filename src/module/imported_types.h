// The types of the sibling modules that the binding uses, imported with the module.
#pragma once

#include "python/compat.h"

namespace vu_mom {

// Owned references, kept for good; null until the import has reached them.
struct ImportedTypes {
  PyTypeObject* type;

  PyTypeObject* Thread;
  PyTypeObject* VuThreadMaster;
  PyTypeObject* VuGlobal;
  PyTypeObject* PubSubMsg;

  PyTypeObject* HashResult;
  PyTypeObject* SetResult;
  PyTypeObject* ListResult;
  PyTypeObject* SortedsetResult;
  PyTypeObject* GetResult;
  PyTypeObject* IncrResult;
  PyTypeObject* SetnxResult;
  PyTypeObject* SmembersResult;
  PyTypeObject* LlenResult;
  PyTypeObject* LrangeResult;
  PyTypeObject* LinsertResult;
  PyTypeObject* LminsertResult;
  PyTypeObject* LmremResult;
  PyTypeObject* LsetResult;
  PyTypeObject* SaveResult;
  PyTypeObject* ZcardResult;
  PyTypeObject* ZrankResult;
  PyTypeObject* ZscoreResult;
  PyTypeObject* ZcountResult;
  PyTypeObject* ZrangeResult;
  PyTypeObject* ZrangebyscoreResult;
  PyTypeObject* ScardResult;
  PyTypeObject* SismemberResult;
};

extern ImportedTypes types;

// Imports them all, in the order of the struct, refusing types of another instance size
// than this build was compiled for. Throws PythonError.
void import_types();

}  // namespace vu_mom
