// Messages of the channels as notices. Their form is described in docs/server.md: a line
//   VERSION CODE TIME TAG FORM IDENTITY
// and parts, each a line "LABEL SIZE" and that many bytes.
#include "../wire.h"
#include "protocol.h"
#include "reply_reader.h"

namespace vu::store {

namespace {

// As many equal elements as one event takes out of a list.
constexpr std::int64_t kMostEqual = 1 << 24;

// Takes text from the front of a message. Throws BadReply.
class MessageReader {
 public:
  explicit MessageReader(std::string_view message) : rest_(message) {}

  bool at_end() const { return rest_.empty(); }

  // What comes before the mark, which is dropped.
  std::string_view until(char mark) {
    const std::size_t end = rest_.find(mark);
    if (end == std::string_view::npos) throw BadReply("a line without an end");
    const std::string_view text = rest_.substr(0, end);
    rest_.remove_prefix(end + 1);
    return text;
  }

  std::int64_t number_until(char mark) { return to_integer(until(mark)); }

  std::string_view bytes(std::int64_t size) {
    if (size < 0 || static_cast<std::uint64_t>(size) > rest_.size()) throw BadReply("it is cut");
    const std::string_view text = rest_.substr(0, static_cast<std::size_t>(size));
    rest_.remove_prefix(text.size());
    return text;
  }

 private:
  std::string_view rest_;
};

struct Part {
  std::string_view label;
  std::string_view bytes;
};

Part next_part(MessageReader& reader) {
  Part part;
  part.label = reader.until(' ');
  part.bytes = reader.bytes(reader.number_until('\n'));
  return part;
}

// The content for those who watch the whole object.
Content content_of_form(char form, MessageReader& reader) {
  Content content;
  switch (form) {
    case 'n':
      break;
    case 'm':
      content = Content::of_message(next_part(reader).bytes);
      break;
    case 'h': {
      content.form = Content::Form::kHash;
      std::string records;
      while (!reader.at_end()) {
        const Part part = next_part(reader);
        content.tags.push_back(to_field_number(part.label));
        records.append(part.bytes);
      }
      content.items.add(records);
      break;
    }
    case 'l':
      content.form = Content::Form::kMessages;
      while (!reader.at_end()) {
        const Part part = next_part(reader);
        const std::int64_t times = part.label.empty() ? 1 : to_integer(part.label);
        if (times > kMostEqual) throw BadReply("more elements than there can be");
        for (std::int64_t i = 0; i < times; ++i) content.items.add(part.bytes);
      }
      break;
    case 'z':
      content.form = Content::Form::kScored;
      while (!reader.at_end()) {
        const Part part = next_part(reader);
        content.items.add(part.bytes);
        content.scores.push_back(to_score(part.label));
      }
      break;
    default:
      throw BadReply("an unknown form");
  }
  return content;
}

bool is_carried(const TypeInfo& type, std::string_view value, std::uint32_t tag) {
  // Key fields are part of the identity and not of the bytes.
  for (const auto* key : type.keys) {
    if (static_cast<std::uint32_t>(key->number()) == tag) return true;
  }
  return carries(value, tag);
}

// What became of one field of a single value. False: nothing.
bool read_field_of_value(const TypeInfo& type, MessageReader& reader, std::uint32_t tag,
                         Notice& notice) {
  bool was = false;
  bool is = false;
  std::string_view old_value;
  std::string_view value;
  while (!reader.at_end()) {
    const Part part = next_part(reader);
    if (part.label == "old") {
      was = true;
      old_value = part.bytes;
    } else if (part.label == "new") {
      is = true;
      value = part.bytes;
    } else {
      throw BadReply("an unknown part");
    }
  }
  // Counting writes the counter of what was there, and nothing else.
  const bool counts = was && is && notice.type_code == VU_MOM_TYPE_INCR;
  if (counts && tag != type.counter.number) return false;
  if (is && is_carried(type, value, tag)) {
    notice.content = Content::of_message(records_of(value, tag));
    return true;
  }
  if (!was || !is_carried(type, old_value, tag)) return false;
  if (is) notice.type_code = VU_MOM_TYPE_DELETED;
  return true;
}

// What became of one field of a hash. False: nothing.
bool read_field_of_hash(MessageReader& reader, std::uint32_t tag, Notice& notice) {
  while (!reader.at_end()) {
    const Part part = next_part(reader);
    if (to_field_number(part.label) != tag) continue;
    if (!part.bytes.empty()) {
      notice.content.form = Content::Form::kHash;
      notice.content.tags.push_back(tag);
      notice.content.items.add(part.bytes);
    } else if (notice.type_code != VU_MOM_TYPE_NONE) {
      notice.type_code = VU_MOM_TYPE_DELETED;
    }
    return true;
  }
  return false;
}

// False: the message says nothing of the field.
bool read_event(const TypeInfo& type, std::string_view message, std::uint32_t tag, Notice& notice) {
  MessageReader reader(message);
  if (reader.until(' ') != "1") throw BadReply("another version");
  notice.type_code = static_cast<std::int32_t>(reader.number_until(' '));
  notice.time_us = reader.number_until(' ');
  notice.tag = static_cast<std::uint32_t>(reader.number_until(' '));
  const std::string_view form = reader.until(' ');
  if (form.size() != 1) throw BadReply("an unknown form");
  if (!identity_from_text(type, reader.until('\n'), notice.identity)) {
    throw BadReply("no identity of its type");
  }
  if (tag == 0) {
    notice.content = content_of_form(form[0], reader);
    return true;
  }
  notice.tag = tag;
  if (form[0] == 'v') return read_field_of_value(type, reader, tag, notice);
  if (form[0] == 'h') return read_field_of_hash(reader, tag, notice);
  throw BadReply("an unknown form");
}

}  // namespace

bool decode_event(const TypeInfo& type, std::int32_t db, std::string_view message,
                  std::uint32_t tag, std::vector<Notice>& notices) {
  try {
    Notice notice;
    notice.db = db;
    notice.names_object = true;
    if (read_event(type, message, tag, notice)) notices.push_back(std::move(notice));
    return true;
  } catch (const BadReply&) {
    return false;
  }
}

}  // namespace vu::store
