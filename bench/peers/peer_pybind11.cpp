// The commands under measurement, as one writes them with pybind11.
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <cstdint>
#include <string>
#include <vector>

#include "vu_mom_types.h"

namespace py = pybind11;

namespace {

class InputError : public std::runtime_error {
  using runtime_error::runtime_error;
};

class Error : public std::runtime_error {
  using runtime_error::runtime_error;
};

void check(std::int32_t status) {
  if (status == 0) return;
  if (status == -2) throw InputError("");
  if (status == -3) throw std::bad_alloc();
  throw Error("");
}

struct Context {
  py::object p;
  py::object cb;
  py::object message_class;
};

void wrap_cb(void*, const vu_mom_reply* reply, void* privdata) {
  Context* context = static_cast<Context*>(privdata);
  try {
    static const py::object message_type =
        py::module_::import("vu_mom_common").attr("PubSubMsg");
    py::object msg = message_type(reinterpret_cast<std::intptr_t>(reply));
    if (reply->data != nullptr) {
      py::object result = context->message_class(reinterpret_cast<std::intptr_t>(reply->data));
      auto* native = reinterpret_cast<PubSubMsgObject*>(msg.ptr());
      PyObject* previous = native->result;
      native->result = result.release().ptr();
      Py_DECREF(previous);
    }
    context->cb(msg, context->p);
  } catch (py::error_already_set& error) {
    error.discard_as_unraisable("wrap_cb");
  }
  delete context;
}

class VuMom {
 public:
  explicit VuMom(py::object glb) : vu_global_(std::move(glb)) {}

  void set(std::int32_t db, const py::object& obj, std::int32_t flag) {
    check(vu_mom_set_ext(handle(), db, &flag, address(obj), nullptr, nullptr));
  }

  void hmset(std::int32_t db, const py::object& obj, const std::vector<std::size_t>& tags) {
    check(vu_mom_hmset(handle(), db, address(obj), tags.data(),
                       static_cast<std::int32_t>(tags.size()), nullptr, nullptr));
  }

  void zadd(std::int32_t db, const std::vector<double>& scores,
            const std::vector<py::object>& objs) {
    if (scores.size() != objs.size()) throw InputError("len(scores) != len(objs)");
    std::vector<vu_mom_message> addresses;
    addresses.reserve(objs.size());
    for (const py::object& obj : objs) addresses.push_back(address(obj));
    check(vu_mom_zadd(handle(), db, scores.data(), addresses.data(),
                      static_cast<std::int32_t>(addresses.size()), nullptr, nullptr));
  }

  void get(const py::object& self, std::int32_t db, const py::object& obj,
           const py::object& privdata) {
    const std::string name = "on_get_" + obj.attr("package_name").cast<std::string>() + "_" +
                             obj.attr("short_name").cast<std::string>();
    const vu_mom_message message = address(obj);
    auto* context = new Context{privdata, self.attr(name.c_str()), obj.attr("__class__")};
    check(vu_mom_get(handle(), db, message, wrap_cb, context));
  }

 private:
  vu_mom_handle* handle() const {
    return reinterpret_cast<VuGlobalObject*>(vu_global_.ptr())->handle;
  }

  static vu_mom_message address(const py::object& obj) {
    return obj.attr("get_ptr")().cast<vu_mom_message>();
  }

  py::object vu_global_;
};

}  // namespace

PYBIND11_MODULE(peer_pybind11, module) {
  py::register_exception<InputError>(module, "InputError");
  py::register_exception<Error>(module, "Error");
  py::class_<VuMom>(module, "VuMom")
      .def(py::init<py::object>(), py::arg("glb"))
      .def("set", &VuMom::set, py::arg("db"), py::arg("obj"), py::arg("flag") = 0)
      .def("hmset", &VuMom::hmset, py::arg("db"), py::arg("obj"), py::arg("field_tags"))
      .def("zadd", &VuMom::zadd, py::arg("db"), py::arg("scores"), py::arg("objs"))
      .def("get",
           [](const py::object& self, std::int32_t db, const py::object& obj,
              const py::object& privdata) { self.cast<VuMom&>().get(self, db, obj, privdata); },
           py::arg("db"), py::arg("obj"), py::arg("privdata"));
}
