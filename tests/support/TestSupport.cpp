#include "support/TestSupport.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "platform/Log.h"

namespace vessa::test {

LogCapture::LogCapture() {
    vessa::log::setStream(&out_);
}

LogCapture::~LogCapture() {
    vessa::log::setStream(nullptr);
}

std::vector<std::string> LogCapture::lines() const {
    std::vector<std::string> result;
    std::istringstream in(out_.str());
    for (std::string line; std::getline(in, line);) {
        result.push_back(line);
    }
    return result;
}

std::vector<std::string> LogCapture::messages() const {
    std::vector<std::string> result;
    for (const std::string& line : lines()) {
        // "[unit] trace: message": cut at the first ": " after the closing bracket.
        const std::string::size_type bracket = line.find("] ");
        const std::string::size_type colon =
            bracket == std::string::npos ? std::string::npos : line.find(": ", bracket + 2);
        result.push_back(colon == std::string::npos ? line : line.substr(colon + 2));
    }
    return result;
}

bool LogCapture::hasMessage(const std::string& message) const {
    const std::vector<std::string> all = messages();
    return std::find(all.begin(), all.end(), message) != all.end();
}

TempDir::TempDir() {
    std::string templ = (std::filesystem::temp_directory_path() / "vessa-test-XXXXXX").string();
    if (mkdtemp(templ.data()) == nullptr) {
        throw std::runtime_error("mkdtemp failed");
    }
    path_ = templ;
}

TempDir::~TempDir() {
    std::error_code ec;
    std::filesystem::remove_all(path_, ec);
}

std::string TempDir::write(const std::string& relative, const std::string& content) const {
    std::filesystem::path full = std::filesystem::path(path_) / relative;
    std::filesystem::create_directories(full.parent_path());
    std::ofstream out(full, std::ios::binary | std::ios::trunc);
    out << content;
    return full.string();
}

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

std::string dataBody(const std::string& relative) {
    const std::string text = readFile(std::string(VESSA_SOURCE_DIR) + "/tests/data/" + relative);
    const std::string::size_type nl = text.find('\n');
    return nl == std::string::npos ? std::string() : text.substr(nl + 1);
}

}  // namespace vessa::test
