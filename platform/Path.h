// File-system path of the base library: text with "/" as the separator on this platform.
#pragma once

#include <string>

namespace vessa::sal::fs {

class Path {
  public:
    Path() = default;
    explicit Path(std::string text) : text_(std::move(text)) {}

    // Appends `component` with exactly one separator between the two parts: a trailing separator of
    // this path and leading separators of the component are not doubled. Joining onto an empty path
    // yields the component unchanged.
    Path& join(const std::string& component);
    Path operator/(const std::string& component) const;

    const std::string& str() const noexcept { return text_; }

    // The same path in the other separator convention: every "/" written as "\" and every "\" as "/".
    // Used when the controller and the target host do not share a convention.
    std::string flipTo() const;

    bool operator==(const Path& other) const { return text_ == other.text_; }

  private:
    std::string text_;
};

}  // namespace vessa::sal::fs
