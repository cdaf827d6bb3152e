#include "model_content.h"

#include <algorithm>

namespace vu::fuzz {

std::vector<std::string> prefix_of(const Name& name, std::uint32_t level) {
  const std::size_t size = std::min<std::size_t>(level, name.components.size());
  return {name.components.begin(), name.components.begin() + static_cast<std::ptrdiff_t>(size)};
}

std::string joined(const std::vector<std::string>& components) {
  std::string all;
  for (const std::string& component : components) all += component;
  return all;
}

Pairs ranked(const std::map<std::string, double>& scores) {
  Pairs pairs;
  for (const auto& [member, score] : scores) pairs.emplace_back(score, member);
  std::sort(pairs.begin(), pairs.end(), [](const auto& one, const auto& other) {
    if (one.first != other.first) return one.first < other.first;
    return one.second < other.second;
  });
  return pairs;
}

Pairs between(const Pairs& pairs, double min, double max) {
  Pairs chosen;
  for (const auto& pair : pairs) {
    if (min <= pair.first && pair.first <= max) chosen.push_back(pair);
  }
  return chosen;
}

Content scored(const Pairs& pairs) {
  Content content;
  content.form = Content::Form::kScored;
  for (const auto& [score, member] : pairs) {
    content.messages.push_back(member);
    content.scores.push_back(score);
  }
  return content;
}

Content hash(const Name& name, const Fields& fields, const std::set<std::uint32_t>& tags) {
  Content content;
  content.form = Content::Form::kHash;
  content.messages.push_back(message_bytes(name, fields));
  content.tags.assign(tags.begin(), tags.end());
  return content;
}

std::set<std::uint32_t> numbers_of(const Fields& fields) {
  std::set<std::uint32_t> numbers;
  for (const auto& [number, record] : fields) numbers.insert(number);
  return numbers;
}

Content messages(std::vector<std::string> all) {
  Content content;
  content.form = Content::Form::kMessages;
  content.messages = std::move(all);
  return content;
}

std::string message_bytes(const Name& name, const Fields& carried) {
  Fields fields = carried;
  for (const auto& [number, record] : name.keys) fields[number] = record;
  std::string bytes;
  for (const auto& [number, record] : fields) bytes += record;
  return bytes;
}

Content Content::of_message(std::string bytes) {
  Content content;
  content.form = Form::kMessage;
  content.messages.push_back(std::move(bytes));
  return content;
}

Content Content::of_integer(std::int64_t value) {
  Content content;
  content.form = Form::kInteger;
  content.integer = value;
  return content;
}

Content Content::of_score(double value) {
  Content content;
  content.form = Form::kScore;
  content.score = value;
  return content;
}

void Content::sort() {
  if (form == Form::kMessages) std::sort(messages.begin(), messages.end());
  if (form != Form::kScored) return;
  Pairs pairs;
  for (std::size_t i = 0; i < messages.size(); ++i) pairs.emplace_back(scores[i], messages[i]);
  std::sort(pairs.begin(), pairs.end());
  *this = scored(pairs);
}

Reply Reply::failure() {
  Reply reply;
  reply.failed = true;
  return reply;
}

Reply Reply::integer(std::int64_t value) {
  Reply reply;
  reply.content = Content::of_integer(value);
  return reply;
}

}  // namespace vu::fuzz
