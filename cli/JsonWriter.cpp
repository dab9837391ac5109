#include "cli/JsonWriter.h"

#include <algorithm>
#include <condition_variable>
#include <cstdio>
#include <deque>
#include <exception>
#include <mutex>
#include <sstream>
#include <system_error>
#include <thread>

#include "platform/Log.h"
#include "platform/Str.h"

namespace vessa::cli {

namespace {

constexpr std::size_t kBlock = 64;   // elements a thread writes at a time
constexpr std::size_t kWaiting = 4;  // blocks written ahead and not yet handed over, at most

}  // namespace

void JsonWriter::elements(std::size_t count, const std::function<void(JsonWriter&, std::size_t)>& write) {
    // The even blocks are written here, straight into this writer; the odd ones by the second thread.
    // The second thread's writers start from this writer's place before the first element: every odd
    // block comes after at least one element, so each of its elements takes a separator.
    const std::size_t blocks = (count + kBlock - 1) / kBlock;
    const auto block = [&](JsonWriter& w, std::size_t b) {
        for (std::size_t i = b * kBlock; i < std::min(count, (b + 1) * kBlock); ++i) {
            write(w, i);
        }
    };
    std::vector<bool> afterFirst = empty_;
    if (!afterFirst.empty()) {
        afterFirst.back() = false;
    }
    std::mutex lock;
    std::condition_variable changed;
    std::deque<std::pair<std::string, std::string>> written;  // odd blocks and their log, not yet handed over
    std::exception_ptr failed;
    bool stop = false;
    std::thread second;
    if (blocks > 1) {
        try {
            second = std::thread([&] {
                for (std::size_t b = 1; b < blocks; b += 2) {
                    std::ostringstream text;
                    std::string logged;
                    try {
                        log::HeldLines held;
                        JsonWriter w(text, oneLine_, afterFirst);
                        block(w, b);
                        w.flush();
                        logged = held.take();
                    } catch (...) {
                        const std::lock_guard<std::mutex> hold(lock);
                        failed = std::current_exception();
                        changed.notify_all();
                        return;
                    }
                    std::unique_lock<std::mutex> hold(lock);
                    changed.wait(hold, [&] { return stop || written.size() < kWaiting; });
                    if (stop) {
                        return;
                    }
                    written.emplace_back(text.str(), std::move(logged));
                    changed.notify_all();
                }
            });
        } catch (const std::system_error&) {
            // No second thread (a process limit): this thread writes every block.
        }
    }
    const bool alone = !second.joinable();
    const auto end = [&] {
        if (second.joinable()) {
            {
                const std::lock_guard<std::mutex> hold(lock);
                stop = true;
                changed.notify_all();
            }
            second.join();
        }
    };
    try {
        for (std::size_t b = 0; b < blocks; ++b) {
            if (b % 2 == 0 || alone) {
                block(*this, b);
                continue;
            }
            std::pair<std::string, std::string> text;
            {
                std::unique_lock<std::mutex> hold(lock);
                changed.wait(hold, [&] { return failed || !written.empty(); });
                if (written.empty()) {
                    std::rethrow_exception(failed);
                }
                text = std::move(written.front());
                written.pop_front();
                changed.notify_all();
            }
            buffer_ += text.first;
            spill();
            log::writeLines(text.second);  // after this thread's lines of the block before
        }
    } catch (...) {
        end();
        throw;
    }
    end();
}

void JsonWriter::indent(std::size_t level) {
    if (!oneLine_) {
        buffer_ += '\n';
        buffer_.append(level * 2, ' ');
    }
    spill();
}

void JsonWriter::place() {
    if (afterKey_) {
        afterKey_ = false;
        return;
    }
    if (empty_.empty()) {
        return;
    }
    if (!empty_.back()) {
        buffer_ += ',';
    }
    empty_.back() = false;
    indent(empty_.size());
}

void JsonWriter::open(char bracket) {
    place();
    buffer_ += bracket;
    empty_.push_back(true);
}

void JsonWriter::close(char bracket) {
    const bool wasEmpty = empty_.back();
    empty_.pop_back();
    if (!wasEmpty) {
        indent(empty_.size());
    }
    buffer_ += bracket;
}

void JsonWriter::key(const std::string& name) {
    place();
    quoted(name);
    buffer_ += ": ";
    afterKey_ = true;
}

void JsonWriter::value(const std::string& text) {
    place();
    quoted(text);
}

void JsonWriter::value(long long number) {
    place();
    buffer_ += std::to_string(number);
}

void JsonWriter::value(unsigned long long number) {
    place();
    buffer_ += std::to_string(number);
}

void JsonWriter::value(bool flag) {
    place();
    buffer_ += flag ? "true" : "false";
}

void JsonWriter::null() {
    place();
    buffer_ += "null";
}

void JsonWriter::value(const std::vector<std::string>& texts) {
    beginArray();
    for (const std::string& t : texts) {
        value(t);
    }
    endArray();
}

void JsonWriter::quoted(const std::string& text) {
    std::string& out = buffer_;
    out += '"';
    for (std::size_t i = 0; i < text.size();) {
        std::size_t plain = i;  // printable ASCII that needs no escape goes over in one piece
        while (plain < text.size() && text[plain] >= 0x20 && text[plain] < 0x7f && text[plain] != '"' &&
               text[plain] != '\\') {
            ++plain;
        }
        if (plain != i) {
            out.append(text, i, plain - i);
            i = plain;
            continue;
        }
        const unsigned char c = static_cast<unsigned char>(text[i]);
        if (c >= 0x80) {
            unsigned int code = 0;
            const std::size_t n = vessa::util::str::utf8Length(text, i, &code);
            if (n == 0) {
                out += "\xEF\xBF\xBD";
                ++i;
            } else if (code <= 0x9F) {
                // C1 controls: valid JSON raw, but a terminal showing the document would obey them.
                char escaped[8];
                std::snprintf(escaped, sizeof escaped, "\\u%04x", code);
                out += escaped;
                i += n;
            } else {
                out.append(text, i, n);
                i += n;
            }
            continue;
        }
        switch (c) {
            case '"':
                out += "\\\"";
                break;
            case '\\':
                out += "\\\\";
                break;
            case '\b':
                out += "\\b";
                break;
            case '\f':
                out += "\\f";
                break;
            case '\n':
                out += "\\n";
                break;
            case '\r':
                out += "\\r";
                break;
            case '\t':
                out += "\\t";
                break;
            default:
                if (c < 0x20 || c == 0x7f) {
                    char escaped[8];
                    std::snprintf(escaped, sizeof escaped, "\\u%04x", c);
                    out += escaped;
                } else {
                    out += static_cast<char>(c);
                }
        }
        ++i;
    }
    out += '"';
}

}  // namespace vessa::cli
