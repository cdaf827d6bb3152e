# The commands under measurement, as one writes them with Cython.
from cpython.ref cimport Py_INCREF, Py_DECREF, PyObject
from libc.stdint cimport int32_t, intptr_t
from libc.stdlib cimport malloc, free

from vu_global import VuGlobal
from vu_mom_common import PubSubMsg


cdef extern from "vu_mom_types.h":
    ctypedef struct vu_mom_handle:
        pass
    ctypedef struct vu_mom_reply:
        int32_t type_code
        void *data
    ctypedef void (*vu_mom_reply_cb)(void *, const vu_mom_reply *, void *)
    ctypedef struct VuGlobalObject:
        vu_mom_handle *handle
    ctypedef struct PubSubMsgObject:
        PyObject *result
    int32_t vu_mom_get(vu_mom_handle *, int32_t, intptr_t, vu_mom_reply_cb, void *)
    int32_t vu_mom_set_ext(vu_mom_handle *, int32_t, int32_t *, intptr_t, vu_mom_reply_cb, void *)
    int32_t vu_mom_hmset(vu_mom_handle *, int32_t, intptr_t, const size_t *, int32_t,
                         vu_mom_reply_cb, void *)
    int32_t vu_mom_zadd(vu_mom_handle *, int32_t, const double *, const intptr_t *, int32_t,
                        vu_mom_reply_cb, void *)


class Error(Exception):
    pass


class InputError(Exception):
    pass


cdef int check(int32_t status) except -1:
    if status == 0:
        return 0
    if status == -2:
        raise InputError
    if status == -3:
        raise MemoryError
    raise Error


cdef int set_result(object msg, object result) except -1:
    cdef PubSubMsgObject *message = <PubSubMsgObject *>msg
    Py_INCREF(result)
    cdef object previous = <object>message.result
    message.result = <PyObject *>result
    Py_DECREF(previous)
    return 0


cdef void wrap_cb(void *unused, const vu_mom_reply *reply, void *privdata):
    cdef dict context = <dict>privdata
    msg = PubSubMsg(<intptr_t>reply)
    if reply.data != NULL:
        set_result(msg, context["obj"](<intptr_t>reply.data))
    context["cb"](msg, context["p"])
    Py_DECREF(context)


cdef class VuMom:
    cdef object vu_global

    def __init__(self, glb):
        if not isinstance(glb, VuGlobal):
            raise TypeError("glb")
        self.vu_global = glb
        glb.regist_app(self)

    cdef vu_mom_handle *handle(self):
        return (<VuGlobalObject *>self.vu_global).handle

    def set(self, int db, obj, int flag=0):
        cdef int32_t c_flag = flag
        cdef intptr_t message = obj.get_ptr()
        check(vu_mom_set_ext(self.handle(), db, &c_flag, message, NULL, NULL))

    def get(self, int db, obj, privdata):
        cb = getattr(self, "on_get_" + obj.package_name + "_" + obj.short_name)
        cdef dict context = {"p": privdata, "cb": cb, "obj": obj.__class__}
        cdef intptr_t message = obj.get_ptr()
        Py_INCREF(context)
        check(vu_mom_get(self.handle(), db, message, wrap_cb, <void *>context))

    def hmset(self, int db, obj, list field_tags):
        cdef Py_ssize_t n = len(field_tags)
        cdef size_t *tags = <size_t *>malloc(n * sizeof(size_t))
        if tags == NULL:
            raise MemoryError
        cdef Py_ssize_t i
        cdef intptr_t message
        try:
            for i in range(n):
                tags[i] = field_tags[i]
            message = obj.get_ptr()
            check(vu_mom_hmset(self.handle(), db, message, tags, <int32_t>n, NULL, NULL))
        finally:
            free(tags)

    def zadd(self, int db, list scores, list objs):
        cdef Py_ssize_t n = len(scores)
        if n != len(objs):
            raise InputError("len(scores) != len(objs)")
        cdef intptr_t *addresses = <intptr_t *>malloc(n * sizeof(intptr_t))
        cdef double *native = <double *>malloc(n * sizeof(double))
        cdef Py_ssize_t i
        try:
            if addresses == NULL or native == NULL:
                raise MemoryError
            for i in range(n):
                addresses[i] = objs[i].get_ptr()
                native[i] = scores[i]
            check(vu_mom_zadd(self.handle(), db, native, addresses, <int32_t>n, NULL, NULL))
        finally:
            free(addresses)
            free(native)
