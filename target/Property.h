// One named, self-describing attribute of a storage item: key, label, value, category, description.
// Also owns the two rules that make arbitrary device text safe for the XML report.
//
// Memory: a listing of tens of thousands of devices carries dozens of properties per item, and all but
// the value are the same few texts over and over (every "SysBlockSize" has the same label and
// description; the properties of one source share a category). A property therefore keeps its value
// and the numbers of its four other texts in a shared pool instead of copying them. The pool is the one
// piece of process-wide state here, and it is a cache rather than state: it only ever adds texts, never
// changes or removes one, so a text seen through an accessor stays put and equal to what was given
// for as long as the process lives, and no caller can tell a pooled text from an owned one. It grows
// by the distinct texts ever given (the constant labels and descriptions, plus one key and category
// per device and source), not by the number of properties, and it takes a lock, so properties may be
// made on any thread.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>

#include "platform/Export.h"

namespace vessa::target {

class VESSA_API Property {
  public:
    // Note the argument order (name, value, display name, description, category): it differs from the
    // field order on purpose, and every caller passes its arguments in this order.
    Property(const std::string& name, const std::string& value, const std::string& displayName,
             const std::string& description, const std::string& category);
    Property(const Property&);
    Property& operator=(const Property&);
    Property(Property&&) noexcept;
    Property& operator=(Property&&) noexcept;
    ~Property();

    const std::string& name() const { return text(name_); }
    const std::string& value() const { return value_; }
    const std::string& description() const { return text(description_); }
    const std::string& category() const { return text(category_); }
    // The display name has no read accessor: only print and printToDebug read it.

    // A setter points this property at another pooled text; copies made before keep the old one.
    void setName(const std::string& v) { name_ = pooled(v); }
    void setValue(const std::string& v) { value_ = v; }
    void setDisplayName(const std::string& v) { displayName_ = pooled(v); }
    void setDescription(const std::string& v) { description_ = pooled(v); }
    void setCategory(const std::string& v) { category_ = pooled(v); }

    // Rewrites `s` in place into a legal XML element name: every byte other than an ASCII letter,
    // digit or "-" becomes two lower-case hex digits; "x" goes in front unless the result begins
    // with a letter.
    static void cleanForXmlElement(std::string& s);
    // Rewrites `s` in place into text safe between XML tags: a string whose first character is not
    // printable becomes all blanks; then & < > " ' become entities (each ampersand exactly once).
    static void cleanForXmlText(std::string& s);

    // Seven lines: the row element `tableName` (written as given) with the five cleaned fields. What
    // the cleaning keeps but XML 1.0 cannot carry (C0 controls other than tab, line feed and carriage
    // return; U+FFFE, U+FFFF; bytes that are not valid UTF-8) is written as U+FFFD, one for each
    // character or stray byte, so the report stays well-formed.
    void print(std::ostream& os, const std::string& tableName) const;
    // Five lines to the log.
    void printToDebug();

  private:
    // The number of the pool's text equal to `text`, added first if new.
    static std::uint32_t pooled(const std::string& text);
    // The pool's text of that number, valid until the process ends.
    static const std::string& text(std::uint32_t number);

    // Numbers rather than addresses: half the size, and a property is mostly these.
    std::uint32_t displayName_;
    std::uint32_t name_;
    std::uint32_t description_;
    std::uint32_t category_;
    std::string value_;
};

}  // namespace vessa::target
