/* The contract with the types of the sibling modules vu_thread, vu_global and
 * vu_mom_common, as the binding is compiled against it.
 *
 * The binding imports each type by name and refuses to load where the type's
 * instance size is not the size declared here, so whoever changes a struct has to
 * rebuild both sides. It reads and writes exactly two fields:
 *
 *  - VuGlobalObject.handle, the native handle passed first to every function of
 *    the store library. It is read afresh at each call; VuGlobal owns it.
 *  - PubSubMsgObject.result, an owned reference that is never null once the object
 *    is built. The binding replaces it with the value that arrived, or None.
 *
 * Everything else in these structs belongs to the modules that define the types.
 * What the types must accept when called, with addresses as signed integers:
 *
 *  - PubSubMsg(record): the address of a vu_mom_reply, valid during the call.
 *  - a result class without messages, e.g. IncrResult(data)
 *  - a result class with messages, e.g. LrangeResult(data, cls=message_class)
 *  - a message class, message_class(data)
 *
 * and VuGlobal needs a method regist_app(client).
 *
 * Compiles as C11 and as C++; Python.h must be included first.
 */
#ifndef VU_MOM_TYPES_H
#define VU_MOM_TYPES_H

#include "vu_mom_impl.h"

/* vu_thread.Thread */
typedef struct {
  PyObject_HEAD
  void *fields[3];
} ThreadObject;

/* vu_thread.VuThreadMaster */
typedef struct {
  PyObject_HEAD
  void *fields[18];
} VuThreadMasterObject;

/* vu_global.VuGlobal */
typedef struct {
  PyObject_HEAD
  vu_mom_handle *handle;
  void *fields[3];
} VuGlobalObject;

/* vu_mom_common.PubSubMsg */
typedef struct {
  PyObject_HEAD
  PyObject *result;
  void *fields[2];
} PubSubMsgObject;

/* Results of vu_mom_common that are a number: IncrResult, LlenResult, ... */
typedef struct {
  PyObject_HEAD
  void *fields[2];
} ValueResultObject;

/* Results of vu_mom_common that hold messages: HashResult, LrangeResult, ... */
typedef struct {
  PyObject_HEAD
  void *fields[3];
} MessagesResultObject;

/* On the 32-bit target; a traced debug interpreter has a larger object head. */
#define VU_MOM_SIZE_IS(type, size) \
  VU_MOM_ASSERT(sizeof(void *) != 4 || sizeof(PyObject) != 8 || sizeof(type) == (size), #type)

VU_MOM_SIZE_IS(ThreadObject, 20);
VU_MOM_SIZE_IS(VuThreadMasterObject, 80);
VU_MOM_SIZE_IS(VuGlobalObject, 24);
VU_MOM_SIZE_IS(PubSubMsgObject, 20);
VU_MOM_SIZE_IS(ValueResultObject, 16);
VU_MOM_SIZE_IS(MessagesResultObject, 20);
#if PY_VERSION_HEX < 0x03050000
VU_MOM_SIZE_IS(PyHeapTypeObject, 412);
#endif

#endif
