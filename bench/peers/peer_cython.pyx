# cython: language_level=3
"""The commands under measurement, as one writes them with Cython."""
from cpython.ref cimport Py_INCREF, Py_DECREF
from libc.stdint cimport int32_t, uint32_t, intptr_t
from libc.stdlib cimport malloc, free


cdef extern from "vu_mom_types.h":
    ctypedef struct vu_mom_handle:
        pass
    ctypedef struct vu_mom_reply:
        void *data
        uint32_t end_mark
    ctypedef void (*vu_mom_reply_cb)(void *, const vu_mom_reply *, void *)

    ctypedef class vu_global.VuGlobal [object VuGlobalObject]:
        cdef vu_mom_handle *handle
    ctypedef class vu_mom_common.PubSubMsg [object PubSubMsgObject]:
        cdef object result

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


class CallbackError(Exception):
    pass


cdef int check(int32_t status) except -1:
    if status == 0:
        return 0
    if status == -2:
        raise InputError
    if status == -3:
        raise MemoryError
    raise Error


# What this raises, Cython prints as unraisable.
cdef void wrap_cb(void *unused, const vu_mom_reply *reply, void *privdata):
    if reply == NULL:
        raise CallbackError("msg is NULL")
    if privdata == NULL:
        raise CallbackError("privdata is NULL")
    cdef dict context = <dict>privdata
    p = context["p"]
    cb = context["cb"]
    cdef PubSubMsg msg = PubSubMsg(<intptr_t>reply)
    msg.result = None
    if reply.data != NULL:
        if "obj" in context and "resobj" in context:
            msg.result = context["resobj"](<intptr_t>reply.data, cls=context["obj"])
        elif "obj" in context:
            msg.result = context["obj"](<intptr_t>reply.data)
        elif "resobj" in context:
            msg.result = context["resobj"](<intptr_t>reply.data)
    cb(msg, p)
    if "flag" not in context or context["flag"] == reply.end_mark:
        Py_DECREF(context)


cdef class VuMom:
    cdef VuGlobal vu_global

    def __init__(self, VuGlobal glb):
        self.vu_global = glb
        glb.regist_app(self)

    def __getfunc(self, name):
        return getattr(self, name)

    def set(self, int32_t db, obj, int32_t flag=0):
        cdef intptr_t message = obj.get_ptr()
        check(vu_mom_set_ext(self.vu_global.handle, db, &flag, message, NULL, NULL))

    def get(self, int32_t db, obj, privdata):
        cb = self.__getfunc("on_get_" + obj.package_name + "_" + obj.short_name)
        cdef dict context = {"p": privdata, "cb": cb, "obj": obj.__class__}
        cdef intptr_t message = obj.get_ptr()
        Py_INCREF(context)
        check(vu_mom_get(self.vu_global.handle, db, message, wrap_cb, <void *>context))

    def hmset(self, int32_t db, obj, list field_tags):
        cdef Py_ssize_t n = 0 if field_tags is None else len(field_tags)
        cdef size_t *tags = NULL
        cdef Py_ssize_t i
        cdef intptr_t message
        try:
            if n != 0:
                tags = <size_t *>malloc(n * sizeof(size_t))
                if tags == NULL:
                    raise MemoryError
                for i in range(n):
                    tags[i] = field_tags[i]
            message = obj.get_ptr()
            check(vu_mom_hmset(self.vu_global.handle, db, message, tags, <int32_t>n, NULL, NULL))
        finally:
            free(tags)

    def zadd(self, int32_t db, list scores, list objs):
        if scores is None or objs is None:
            raise InputError("scores or objs is None")
        cdef Py_ssize_t n = len(scores)
        if n != len(objs):
            raise InputError("len(scores) != len(objs)")
        if n == 0:
            return
        cdef intptr_t *addresses = <intptr_t *>malloc(n * sizeof(intptr_t))
        cdef double *native = <double *>malloc(n * sizeof(double))
        cdef Py_ssize_t i
        try:
            if addresses == NULL or native == NULL:
                raise MemoryError
            for i in range(n):
                addresses[i] = objs[i].get_ptr()
                native[i] = scores[i]
            check(vu_mom_zadd(self.vu_global.handle, db, native, addresses, <int32_t>n,
                              NULL, NULL))
        finally:
            free(addresses)
            free(native)
