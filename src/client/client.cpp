#include "client/client.h"

#include "client/arguments.h"
#include "client/status.h"
#include "module/imported_types.h"
#include "module/traceback.h"
#include "vu_mom_types.h"

namespace vu_mom {
namespace {

const Name regist_app("regist_app");
const Name getfunc_attribute("__getfunc");

constexpr Signature kInit{"__init__", 1, {"glb"}};

VuMom& client_of(PyObject* self) { return *reinterpret_cast<VuMom*>(self); }

PyObject* create(PyTypeObject* type, PyObject*, PyObject*) {
  return py::enter([&] {
    // The new of object refuses classes with abstract methods, with a text of its own.
    py::Owned self = (type->tp_flags & Py_TPFLAGS_IS_ABSTRACT) == 0
                         ? py::checked(type->tp_alloc(type, 0))
                         : py::checked(PyBaseObject_Type.tp_new(
                               type, py::checked(PyTuple_New(0)).get(), nullptr));
    client_of(self.get()).vu_global = py::Owned::share(py::Borrowed(Py_None)).release();
    return self;
  });
}

int initialise(PyObject* self, PyObject* tuple, PyObject* dict) {
  return enter_traced_status("vu_mom.VuMom.__init__", [&] {
    const ArgumentsOfDict in(kInit, tuple, dict);
    const auto [glb] = in.values<1>();
    if (!is_global_or_none(glb)) raise_wrong_type("glb", global_type_name(), glb);
    bind_client(client_of(self), glb);
    py::checked(PyObject_CallMethodObjArgs(glb.get(), regist_app.get().get(), self, nullptr));
  });
}

int traverse(PyObject* self, visitproc visit, void* arg) {
  Py_VISIT(client_of(self).vu_global);
  return 0;
}

int clear(PyObject* self) {
  bind_client(client_of(self), py::Borrowed(Py_None));
  return 0;
}

void destroy(PyObject* self) {
  // The interpreter calls the finaliser of Python subclasses; this is for C ones.
  if (Py_TYPE(self)->tp_finalize != nullptr && Py_TYPE(self)->tp_dealloc == destroy &&
      PyObject_CallFinalizerFromDealloc(self) < 0) {
    return;  // the finaliser brought the object back
  }
  PyObject_GC_UnTrack(self);
  const py::Owned vu_global = py::Owned::steal(client_of(self).vu_global);
  Py_TYPE(self)->tp_free(self);
}

PyObject* getfunc(PyObject* self, PyObject* name) {
  return enter_traced("vu_mom.VuMom.__getfunc",
                      [&] { return py::checked(PyObject_GetAttr(self, name)); });
}

PyObject* debug_show_all(PyObject* self, PyObject*) {
  return enter_traced("vu_mom.VuMom.debug_show_all", [&] {
    accept(vu_mom_debug_show_all(client_of(self).handle()));
    return py::Owned::share(py::Borrowed(Py_None));
  });
}

PyTypeObject client_type() {
  PyTypeObject type = py::static_type("vu_mom.VuMom", sizeof(VuMom));
  type.tp_flags = Py_TPFLAGS_DEFAULT | Py_TPFLAGS_BASETYPE | Py_TPFLAGS_HAVE_GC | VU_HAVE_FINALIZE;
  type.tp_doc =
      "VuMom(glb)\n--\n\n"
      "A client of the object store.\n\n"
      "Subclass it and define reply methods: the reply to `get` of a message of type\n"
      "Counter in package demo arrives at `on_get_demo_Counter(self, msg, p)`, where msg is\n"
      "the PubSubMsg that arrived and p the `privdata` given to the command. Commands\n"
      "return at once; replies are delivered by the event loop of `glb`.";
  type.tp_new = create;
  type.tp_init = initialise;
  type.tp_dealloc = destroy;
  type.tp_traverse = traverse;
  type.tp_clear = clear;
  return type;
}

}  // namespace

PyTypeObject VuMomType = client_type();

vu_mom_handle* VuMom::handle() const {
  return reinterpret_cast<const VuGlobalObject*>(vu_global)->handle;
}

void ready_client_type(PyMethodDef* methods) {
  VuMomType.tp_methods = methods;
  py::checked(PyType_Ready(&VuMomType));
}

std::vector<PyMethodDef> client_methods() {
  return {
      {"__getfunc", getfunc, METH_O,
       "__getfunc($self, name, /)\n--\n\n"
       "The attribute `name` of the client. Commands fetch reply methods through it, so that\n"
       "a subclass that overrides it decides where replies go."},
      {"debug_show_all", debug_show_all, METH_NOARGS,
       "debug_show_all($self, /)\n--\n\n"
       "Let the store print its state, for a person who debugs.\n\n"
       "Raises InputError, MemoryError or Error where the store refuses."},
  };
}

Fetch::Fetch(VuMom& client)
    : client_(client),
      looked_up_(py::checked(py::look_up_method(reinterpret_cast<PyObject*>(&client),
                                                getfunc_attribute.get().get(), function_))) {}

py::Owned Fetch::operator()(py::Borrowed name) const {
  if (function_ != nullptr) {
    return py::checked(function_(reinterpret_cast<PyObject*>(&client_), name.get()));
  }
  PyObject* vector[] = {nullptr, name.get()};
  return py::checked(py::call_vector(looked_up_.get(), vector + 1, 1));
}

void bind_client(VuMom& client, py::Borrowed vu_global) {
  py::replace(client.vu_global, py::Owned::share(vu_global));
}

bool is_global_or_none(py::Borrowed object) {
  if (object.is_none()) return true;
  if (types.VuGlobal == nullptr) py::raise(PyExc_SystemError, "Missing type object");
  return PyObject_TypeCheck(object.get(), types.VuGlobal);
}

const char* global_type_name() { return types.VuGlobal->tp_name; }

}  // namespace vu_mom
