// Fuzzes the two XML cleaning rules: any text made an element name must be a legal XML name, and any
// text made element text must carry no markup and read back as what was given (or, when it begins
// with an unprintable byte, as blanks).
// Seeds: tests/data/report
#include <cctype>

#include "fuzz/FuzzSupport.h"

using vessa::fuzz::require;
using vessa::target::Property;

namespace {

bool asciiLetter(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

// Undoes the five entities; false on an "&" that begins none of them.
bool decode(const std::string& s, std::string& out) {
    static const struct {
        const char* entity;
        char c;
    } entities[] = {{"&amp;", '&'}, {"&lt;", '<'}, {"&gt;", '>'}, {"&quot;", '"'}, {"&apos;", '\''}};
    for (std::string::size_type i = 0; i < s.size(); ++i) {
        if (s[i] != '&') {
            out += s[i];
            continue;
        }
        bool known = false;
        for (const auto& e : entities) {
            const std::string entity = e.entity;
            if (s.compare(i, entity.size(), entity) == 0) {
                out += e.c;
                i += entity.size() - 1;
                known = true;
                break;
            }
        }
        if (!known) {
            return false;
        }
    }
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string input = vessa::fuzz::text(data, size);

    std::string element = input;
    Property::cleanForXmlElement(element);
    require(!element.empty() && asciiLetter(element[0]), "a name begins with a letter");
    for (char c : element) {
        require(asciiLetter(c) || (c >= '0' && c <= '9') || c == '-', "a name holds letters, digits and -");
    }
    require(element.size() <= 2 * input.size() + 1, "each byte becomes at most two");

    std::string text = input;
    Property::cleanForXmlText(text);
    require(text.find_first_of("<>\"'") == std::string::npos, "no markup characters left");
    std::string decoded;
    require(decode(text, decoded), "every & begins an entity");
    const bool blanked = !input.empty() && !std::isprint(static_cast<unsigned char>(input[0]));
    require(decoded == (blanked ? std::string(input.size(), ' ') : input), "the text reads back as given");
    return 0;
}
