// One named, self-describing attribute of a storage item: key, label, value, category, description.
// Also owns the two rules that make arbitrary device text safe for the XML report.
#pragma once

#include <memory>
#include <ostream>
#include <string>

namespace vessa::target {

class Property {
  public:
    // The describing texts, which every item's property of one kind has alike. Kept once and shared
    // (copied only when a setter changes them): a listing of a million items must not hold a million
    // copies of each description.
    struct Texts {
        std::string displayName;
        std::string description;
        std::string category;
    };

    // Note the argument order (name, value, display name, description, category): it differs from the
    // field order on purpose, and every caller passes its arguments in this order.
    Property(const std::string& name, const std::string& value, const std::string& displayName,
             const std::string& description, const std::string& category);
    // With texts shared with other properties.
    Property(const std::string& name, const std::string& value, std::shared_ptr<const Texts> texts);
    Property(const Property&);
    Property& operator=(const Property&);
    ~Property();

    const std::string& name() const { return name_; }
    const std::string& value() const { return value_; }
    const std::string& description() const { return texts_->description; }
    const std::string& category() const { return texts_->category; }
    // The display name has no read accessor: only print and printToDebug read it.

    void setName(const std::string& v) { name_ = v; }
    void setValue(const std::string& v) { value_ = v; }
    void setDisplayName(const std::string& v) { ownTexts().displayName = v; }
    void setDescription(const std::string& v) { ownTexts().description = v; }
    void setCategory(const std::string& v) { ownTexts().category = v; }

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
    // The texts of this property alone, copied first when they are shared.
    Texts& ownTexts();

    std::string name_;
    std::string value_;
    std::shared_ptr<const Texts> texts_;
};

}  // namespace vessa::target
