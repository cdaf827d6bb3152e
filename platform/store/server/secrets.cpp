#include "secrets.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "address.h"

namespace vu::store {

namespace {

constexpr std::array<std::string_view, 2> kPasswords = {"password=", "sentinel_password="};
constexpr std::array<std::string_view, 6> kOthers = {
    "prefix=", "user=", "sentinel_user=", "database=", "connect_timeout=", "command_timeout="};

// The one of `names` with which `text` begins; empty: none.
template <std::size_t N>
std::string_view one_of(const std::array<std::string_view, N>& names, std::string_view text) {
  const auto found = std::find_if(names.begin(), names.end(),
                                  [&](std::string_view name) { return text.starts_with(name); });
  return found == names.end() ? std::string_view() : *found;
}

bool is_option(std::string_view text) {
  return !one_of(kPasswords, text).empty() || !one_of(kOthers, text).empty();
}

std::string_view first_option(std::string_view options) {
  return options.substr(0, options.find('&'));
}

bool are_options(std::string_view text) {
  while (!text.empty()) {
    const std::string_view option = first_option(text);
    if (!is_option(option)) return false;
    text.remove_prefix(std::min(text.size(), option.size() + 1));
  }
  return true;
}

// What stands in front of the last '@' of `place`, behind the first ':', is the password.
std::string hide_in_front(std::string_view place) {
  const std::size_t begin = place.find_first_not_of('/');
  const std::size_t at = place.rfind('@');
  const std::size_t colon = place.find(':', begin == place.npos ? 0 : begin);
  if (at == place.npos || colon > at) return std::string(place);
  return std::string(place.substr(0, colon + 1)) + "***" + std::string(place.substr(at));
}

// A part that is no option belongs to the option in front: an '&' that should have been encoded.
std::string hide_in_options(std::string_view options) {
  std::string text;
  bool is_hidden = false;
  while (!options.empty()) {
    const std::string_view option = first_option(options);
    const std::string_view password = one_of(kPasswords, option);
    if (is_option(option)) is_hidden = !password.empty();
    if (!password.empty()) {
      text += std::string(password) + "***&";
    } else if (!is_hidden) {
      text += std::string(option) + '&';
    }
    options.remove_prefix(std::min(options.size(), option.size() + 1));
  }
  if (!text.empty()) text.pop_back();
  return text;
}

}  // namespace

std::string without_password(const std::string& store) {
  if (!is_server_store(store)) return store;
  const std::string_view text(store);
  const std::size_t scheme = text.find(':') + 1;
  std::size_t question = text.find('?');
  // A '?' that should have been encoded.
  if (question != text.npos && !are_options(text.substr(question + 1))) {
    const std::size_t at = text.rfind('@');
    if (at != text.npos && at > question) question = text.find('?', at);
  }
  std::string hidden(text.substr(0, scheme));
  if (question == text.npos) return hidden + hide_in_front(text.substr(scheme));
  hidden += hide_in_front(text.substr(scheme, question - scheme));
  return hidden + '?' + hide_in_options(text.substr(question + 1));
}

}  // namespace vu::store
