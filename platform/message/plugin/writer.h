// Text with indentation.
#pragma once

#include <string>

namespace vu {

class Writer {
 public:
  // Adds a line at the present depth; an empty one has no margin.
  void line(const std::string& text = "") { text_ += text.empty() ? "\n" : margin() + text + "\n"; }

  void indent() { ++depth_; }
  void dedent() { --depth_; }
  std::string margin() const { return std::string(4 * depth_, ' '); }
  const std::string& text() const { return text_; }

 private:
  std::string text_;
  std::size_t depth_ = 0;
};

}  // namespace vu
