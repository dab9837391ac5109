#include "platform/Path.h"

namespace vessa::sal::fs {

Path& Path::join(const std::string& component) {
    if (text_.empty()) {
        text_ = component;
        return *this;
    }
    std::string::size_type start = 0;
    while (start < component.size() && component[start] == '/') {
        ++start;
    }
    if (text_.back() != '/') {
        text_ += '/';
    }
    text_.append(component, start, std::string::npos);
    return *this;
}

Path Path::operator/(const std::string& component) const {
    Path p(*this);
    p.join(component);
    return p;
}

std::string Path::flipTo() const {
    std::string out(text_);
    for (char& c : out) {
        if (c == '/') {
            c = '\\';
        } else if (c == '\\') {
            c = '/';
        }
    }
    return out;
}

}  // namespace vessa::sal::fs
