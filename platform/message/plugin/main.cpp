// protoc-gen-vu: makes Python modules and type stubs from .proto files.
//
//   protoc --vu_out=DIRECTORY telemetry.proto
#include <google/protobuf/compiler/code_generator.h>
#include <google/protobuf/compiler/plugin.h>
#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/io/zero_copy_stream.h>

#include <memory>

#include "checks.h"
#include "module_file.h"
#include "python_names.h"
#include "stub_file.h"

namespace {

namespace pb = google::protobuf;

class Generator : public pb::compiler::CodeGenerator {
 public:
  std::uint64_t GetSupportedFeatures() const override { return FEATURE_PROTO3_OPTIONAL; }

  bool Generate(const pb::FileDescriptor* file, const std::string& parameter,
                pb::compiler::GeneratorContext* context, std::string* error) const override {
    if (!parameter.empty()) {
      *error = "no parameters are known, not '" + parameter + "'";
      return false;
    }
    *error = vu::find_mistake(*file);
    if (!error->empty()) return false;
    write(*context, vu::module_path(*file) + ".py", vu::module_text(*file));
    write(*context, vu::module_path(*file) + ".pyi", vu::stub_text(*file));
    return true;
  }

 private:
  static void write(pb::compiler::GeneratorContext& context, const std::string& name,
                    const std::string& text) {
    const std::unique_ptr<pb::io::ZeroCopyOutputStream> stream(context.Open(name));
    pb::io::CodedOutputStream(stream.get()).WriteString(text);
  }
};

}  // namespace

int main(int argc, char** argv) {
  const Generator generator;
  return pb::compiler::PluginMain(argc, argv, &generator);
}
