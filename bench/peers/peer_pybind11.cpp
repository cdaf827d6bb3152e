// The commands under measurement, as one writes them with pybind11.
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "vu_mom_types.h"

namespace py = pybind11;

namespace {

class Error : public std::runtime_error {
  using runtime_error::runtime_error;
};

class InputError : public std::runtime_error {
  using runtime_error::runtime_error;
};

class CallbackError : public std::runtime_error {
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
  py::object message_class = {};
  py::object result_class = {};
  std::optional<std::uint32_t> flag = {};
};

// The classes of the siblings, kept for good.
struct Siblings {
  py::object VuGlobal = py::module_::import("vu_global").attr("VuGlobal");
  py::object PubSubMsg = py::module_::import("vu_mom_common").attr("PubSubMsg");
};
Siblings* siblings = nullptr;

void set_result(const py::object& msg, py::object result) {
  auto* native = reinterpret_cast<PubSubMsgObject*>(msg.ptr());
  const py::object previous = py::reinterpret_steal<py::object>(native->result);
  native->result = result.release().ptr();
}

void deliver(const vu_mom_reply* reply, void* privdata) {
  if (reply == nullptr) throw CallbackError("msg is NULL");
  if (privdata == nullptr) throw CallbackError("privdata is NULL");
  auto* const context = static_cast<Context*>(privdata);
  const py::object msg = siblings->PubSubMsg(reinterpret_cast<std::intptr_t>(reply));
  set_result(msg, py::none());
  if (reply->data != nullptr) {
    const auto data = reinterpret_cast<std::intptr_t>(reply->data);
    if (context->message_class && context->result_class) {
      set_result(msg, context->result_class(data, py::arg("cls") = context->message_class));
    } else if (context->message_class) {
      set_result(msg, context->message_class(data));
    } else if (context->result_class) {
      set_result(msg, context->result_class(data));
    }
  }
  context->cb(msg, context->p);
  if (!context->flag || *context->flag == reply->end_mark) delete context;
}

void wrap_cb(void*, const vu_mom_reply* reply, void* privdata) {
  try {
    deliver(reply, privdata);
  } catch (py::error_already_set& error) {
    error.discard_as_unraisable("wrap_cb");
  } catch (const std::exception& error) {
    PyErr_SetString(PyExc_RuntimeError, error.what());
    PyErr_WriteUnraisable(nullptr);
  }
}

class VuMom {
 public:
  explicit VuMom(py::object glb) : vu_global_(std::move(glb)) {
    if (!py::isinstance(vu_global_, siblings->VuGlobal)) throw py::type_error("glb");
  }

  static py::object getfunc(const py::object& self, const py::object& name) {
    return self.attr(name);
  }

  void set(std::int32_t db, const py::object& obj, std::int32_t flag) {
    check(vu_mom_set_ext(handle(), db, &flag, address(obj), nullptr, nullptr));
  }

  void get(const py::object& self, std::int32_t db, const py::object& obj,
           const py::object& privdata) {
    const std::string name = "on_get_" + obj.attr("package_name").cast<std::string>() + "_" +
                             obj.attr("short_name").cast<std::string>();
    auto context = std::make_unique<Context>(Context{privdata, self.attr("__getfunc")(name)});
    context->message_class = obj.attr("__class__");
    const vu_mom_message message = address(obj);
    check(vu_mom_get(handle(), db, message, wrap_cb, context.get()));
    context.release();
  }

  void hmset(std::int32_t db, const py::object& obj,
             const std::optional<std::vector<std::size_t>>& given) {
    const std::vector<std::size_t> none;
    const std::vector<std::size_t>& tags = given ? *given : none;
    check(vu_mom_hmset(handle(), db, address(obj), tags.data(),
                       static_cast<std::int32_t>(tags.size()), nullptr, nullptr));
  }

  void zadd(std::int32_t db, const std::vector<double>& scores,
            const std::vector<py::object>& objs) {
    if (scores.size() != objs.size()) throw InputError("len(scores) != len(objs)");
    if (scores.empty()) return;
    std::vector<vu_mom_message> addresses;
    addresses.reserve(objs.size());
    for (const py::object& obj : objs) addresses.push_back(address(obj));
    check(vu_mom_zadd(handle(), db, scores.data(), addresses.data(),
                      static_cast<std::int32_t>(addresses.size()), nullptr, nullptr));
  }

 private:
  vu_mom_handle* handle() const {
    return reinterpret_cast<const VuGlobalObject*>(vu_global_.ptr())->handle;
  }

  static vu_mom_message address(const py::object& obj) {
    return obj.attr("get_ptr")().cast<vu_mom_message>();
  }

  py::object vu_global_;
};

}  // namespace

PYBIND11_MODULE(peer_pybind11, module) {
  siblings = new Siblings();
  py::register_exception<InputError>(module, "InputError");
  py::register_exception<Error>(module, "Error");
  py::class_<VuMom>(module, "VuMom")
      .def(py::init<py::object>(), py::arg("glb"))
      .def("__getfunc", &VuMom::getfunc)
      .def("set", &VuMom::set, py::arg("db"), py::arg("obj"), py::arg("flag") = 0)
      .def("hmset", &VuMom::hmset, py::arg("db"), py::arg("obj"), py::arg("field_tags"))
      .def("zadd", &VuMom::zadd, py::arg("db"), py::arg("scores"), py::arg("objs"))
      .def("get",
           [](const py::object& self, std::int32_t db, const py::object& obj,
              const py::object& privdata) { self.cast<VuMom&>().get(self, db, obj, privdata); },
           py::arg("db"), py::arg("obj"), py::arg("privdata"));
}
