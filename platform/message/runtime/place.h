// Where in a message a value is used, for errors: "demo.Port.last.times[3]".
#pragma once

#include <google/protobuf/map_field.h>

#include <string>

namespace vu {

struct Field;
struct MessageObject;
struct Node;

// The name of a part that Python holds, from its root on: "demo.Port", "demo.Port.lanes[2]".
std::string path_of(const Node& node);

// A field, one of its elements or entries. Places lie on the stack; what they refer to must live
// as long, except that a held part may be moved to another message meanwhile: the text tells
// where it is by then. In a list that is given, the index is the place in that list.
class Place {
 public:
  // A field of a message that Python holds, or that is made for the place `around`.
  Place(const MessageObject& message, const Field& field, const Place* around = nullptr);

  // The field of a view.
  explicit Place(const Node& view) : holder_(&view) {}

  Place element(int index) const;
  Place entry(const google::protobuf::MapKey& key) const;
  Place key() const;  // of an entry, itself

  std::string text() const;

 private:
  const Node* holder_ = nullptr;   // the message, or the view; null: see around_
  const Place* around_ = nullptr;  // what the message is made for
  const Field* field_ = nullptr;   // of the message; null: that of the view
  int index_ = -1;
  const google::protobuf::MapKey* entry_ = nullptr;
  bool is_key_ = false;
};

}  // namespace vu
