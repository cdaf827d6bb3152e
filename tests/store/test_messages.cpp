#include "test_messages.h"

#include <google/protobuf/compiler/parser.h>
#include <google/protobuf/descriptor.pb.h>
#include <google/protobuf/dynamic_message.h>
#include <google/protobuf/io/tokenizer.h>
#include <google/protobuf/io/zero_copy_stream_impl_lite.h>
#include <google/protobuf/text_format.h>

#include <cstdlib>
#include <iostream>

#include "vu_platform.h"

namespace vu::store::test {

namespace {

using google::protobuf::DescriptorPool;
using google::protobuf::DynamicMessageFactory;
using google::protobuf::FileDescriptorProto;
using google::protobuf::Message;

constexpr const char* kOptions = R"pb(
  syntax = "proto2"
  ;
  package vu;
  import "google/protobuf/descriptor.proto";
  extend google.protobuf.FieldOptions {
    optional uint32 key = 50801;
    optional bool counter = 50802;
  }
)pb";

constexpr const char* kTypes = R"pb(
  syntax = "proto3"
  ;
  package acme.net;
  import "vu/options.proto";

  message Port {
    string device = 1 [(vu.key) = 1];
    uint32 number = 2 [(vu.key) = 2];
    uint64 rx = 3;
    string note = 4;
    repeated int32 samples = 5;
    int64 hits = 6 [(vu.counter) = true];
    map<string, int32> limits = 7;
    optional int32 speed = 8;
    bytes blob = 9;
  }
  message Single { string text = 1; }
  message Every {
    enum Color { RED = 0; BLUE = 5; }
    int64 a = 10 [(vu.key) = 1];
    bool b = 2 [(vu.key) = 2];
    Color c = 7 [(vu.key) = 3];
    bytes d = 4 [(vu.key) = 4];
    sint32 e = 5 [(vu.key) = 5];
    uint64 f = 6 [(vu.key) = 6];
    string rest = 1;
  }
  message SmallCounter { string name = 1 [(vu.key) = 1]; int32 n = 2 [(vu.counter) = true]; }
  message UnsignedCounter { uint32 n = 2 [(vu.counter) = true]; }
  message ZigzagCounter { sint64 n = 2 [(vu.counter) = true]; string tail = 3; }
  message FixedCounter { fixed32 n = 2 [(vu.counter) = true]; }
  message WideCounter { uint64 n = 2 [(vu.counter) = true]; }
  message Numbers {
    int32 a = 1; int64 b = 2; uint32 c = 3; uint64 d = 4; sint32 e = 5; sint64 f = 6;
    fixed32 g = 7; fixed64 h = 8; sfixed32 i = 9; sfixed64 j = 10; bool k = 11; float l = 12;
    double m = 13; optional int32 n = 14; optional double o = 15; optional string p = 1600;
  }
  message Entry { string key = 1 [(vu.key) = 1]; bytes value = 2; }
  message SamePosition { int32 a = 1 [(vu.key) = 1]; int32 b = 2 [(vu.key) = 1]; }
  message Gap { int32 a = 1 [(vu.key) = 1]; int32 b = 2 [(vu.key) = 3]; }
  message FloatKey { double a = 1 [(vu.key) = 1]; }
  message ListKey { repeated int32 a = 1 [(vu.key) = 1]; }
  message TwoCounters { int32 a = 1 [(vu.counter) = true]; int32 b = 2 [(vu.counter) = true]; }
  message TextCounter { string a = 1 [(vu.counter) = true]; }
)pb";

constexpr const char* kOldTypes = R"pb(
  syntax = "proto2"
  ;
  package acme.net;
  import "vu/options.proto";

  message OldNumbers {
    enum Closed { ONE = 1; TWO = 2; }
    optional int32 a = 1 [default = 7];
    optional Closed b = 2 [default = TWO];
    optional bool c = 3 [default = true];
    optional double d = 4 [default = 0.5];
    required uint64 e = 5;
    optional string f = 6;
    optional bytes g = 7;
  }
  message Old {
    enum Closed { ONE = 1; TWO = 2; }
    optional string name = 1 [(vu.key) = 1, default = "nobody"];
    optional Closed level = 2 [(vu.key) = 2];
    required int32 must = 3;
    optional group Part = 4 { optional int32 x = 5; }
    optional int32 n = 6 [(vu.counter) = true, default = 10];
  }
)pb";

void add_file(DescriptorPool& pool, const std::string& name, const char* text) {
  google::protobuf::io::ArrayInputStream input(text, static_cast<int>(std::string(text).size()));
  google::protobuf::io::Tokenizer tokens(&input, nullptr);
  google::protobuf::compiler::Parser parser;
  FileDescriptorProto file;
  const bool parsed = parser.Parse(&tokens, &file);
  file.set_name(name);
  if (!parsed || pool.BuildFile(file) == nullptr) {
    std::cerr << "cannot build " << name << "\n";
    std::abort();
  }
}

struct Types {
  Types() {
    FileDescriptorProto file;
    google::protobuf::FileDescriptorProto::descriptor()->file()->CopyTo(&file);
    pool.BuildFile(file);
    add_file(pool, "vu/options.proto", kOptions);
    add_file(pool, "types.proto", kTypes);
    add_file(pool, "old_types.proto", kOldTypes);
  }
  DescriptorPool pool;
  DynamicMessageFactory factory;
};

Types& types() {
  static auto* const all = new Types();  // outlives every handle
  return *all;
}

}  // namespace

std::unique_ptr<Message> make_message(const std::string& type, const std::string& text) {
  const auto* descriptor = types().pool.FindMessageTypeByName("acme.net." + type);
  std::unique_ptr<Message> message(types().factory.GetPrototype(descriptor)->New());
  google::protobuf::TextFormat::Parser parser;
  parser.AllowPartialMessage(true);
  if (!parser.ParseFromString(text, message.get())) {
    std::cerr << "not a " << type << ": " << text << "\n";
    std::abort();
  }
  return message;
}

std::string text_of(const Message& message) { return message.ShortDebugString(); }

Live::Live(const std::string& type, const std::string& text) : message_(make_message(type, text)) {
  if (vu_platform_message_add(*this) != VU_MOM_OK) std::abort();
}

Live::~Live() {
  if (message_) vu_platform_message_remove(*this);
}

std::string port_key(const std::string& device, unsigned number) {
  std::string key = "s";
  for (unsigned i = 0; i < 4; ++i) key.push_back(static_cast<char>(device.size() >> (8 * i)));
  key += device;
  key.push_back('u');
  for (unsigned i = 0; i < 8; ++i) {
    key.push_back(static_cast<char>(i < 4 ? number >> (8 * i) : 0));
  }
  return key;
}

}  // namespace vu::store::test
