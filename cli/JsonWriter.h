// A JSON document written as it is made, two blanks of indentation per level, "key": value, empty
// arrays and objects as [] and {}. A storage list of ten thousand devices is tens of megabytes of JSON:
// writing it straight to the stream keeps neither the document nor a copy of the list in memory.
//
// Text is written as UTF-8; a byte that does not belong to a valid UTF-8 sequence (device data is not
// always text) is written as U+FFFD. Every control character (C0, DEL and C1) is escaped, so that the
// document shown on a terminal cannot command it.
#pragma once

#include <cstddef>
#include <functional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace vessa::cli {

class JsonWriter {
  public:
    // Indented: two blanks a level, a member or element a line. OneLine: the whole document on one
    // line (a stream of documents, one a line).
    enum class Layout { Indented, OneLine };

    explicit JsonWriter(std::ostream& out, Layout layout = Layout::Indented)
        : out_(out), oneLine_(layout == Layout::OneLine) {}
    ~JsonWriter() { flush(); }
    JsonWriter(const JsonWriter&) = delete;
    JsonWriter& operator=(const JsonWriter&) = delete;

    void beginObject() { open('{'); }
    void endObject() { close('}'); }
    void beginArray() { open('['); }
    void endArray() { close(']'); }
    // The key of the next member of the current object.
    void key(const std::string& name);

    void value(const std::string& text);
    void value(const char* text) { value(std::string(text)); }
    void value(long long number);
    void value(unsigned long long number);
    void value(bool flag);
    void null();
    void value(const std::vector<std::string>& texts);

    // Writes `count` elements of the current array, element i by write(writer, i), in order. Blocks
    // of elements are written by two threads in turn, each into its own writer, and the other
    // thread's blocks handed over as text when their turn comes: at most a few blocks wait, however
    // many elements there are. `write` must be safe to call from two threads at once, and must not
    // touch this writer but through the one it is given. An exception from it ends the writing and
    // comes out here, both threads done.
    void elements(std::size_t count, const std::function<void(JsonWriter&, std::size_t)>& write);

    // Ends the document with a newline and hands everything to the stream.
    void finish() {
        buffer_ += '\n';
        flush();
    }
    void flush() {
        out_.write(buffer_.data(), static_cast<std::streamsize>(buffer_.size()));
        buffer_.clear();
    }

  private:
    // A writer into `out` that goes on inside the open levels `empty` (nothing written yet in those
    // marked true), as another writer would.
    JsonWriter(std::ostream& out, bool oneLine, std::vector<bool> empty)
        : out_(out), oneLine_(oneLine), empty_(std::move(empty)) {}

    void open(char bracket);
    void close(char bracket);
    // Before a value: the separator and indentation that its place in an array asks for.
    void place();
    void indent(std::size_t level);
    void quoted(const std::string& text);

    void spill() {
        if (buffer_.size() > (1u << 16)) {
            flush();
        }
    }

    std::ostream& out_;
    bool oneLine_;
    std::string buffer_;       // written to out_ in large pieces
    std::vector<bool> empty_;  // per open level: nothing written in it yet
    bool afterKey_ = false;
};

}  // namespace vessa::cli
