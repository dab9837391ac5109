#include "cli/Columns.h"

#include <algorithm>
#include <cctype>

#include "cli/ListOutput.h"
#include "cli/Usage.h"

namespace vessa::cli {

namespace {

using vessa::target::Identity;

std::string join(const std::vector<std::string>& words, const char* separator) {
    std::string out;
    for (const std::string& w : words) {
        out += (out.empty() ? "" : separator) + w;
    }
    return out;
}

std::string text(const std::optional<std::string>& value) {
    return value ? terminalText(*value) : "";
}
std::string text(const std::optional<bool>& value) {
    return value ? (*value ? "1" : "0") : "";
}
std::string text(const std::optional<unsigned int>& value) {
    return value ? std::to_string(*value) : "";
}

// An identity field of the row, empty when the identity is not known.
template <typename T>
std::string identity(const RowFacts& r, std::optional<T> Identity::*field) {
    return r.identity != nullptr ? text(r.identity->*field) : "";
}

// Characters of valid UTF-8 text, each one column (the tree's drawing characters are too).
std::size_t widthOf(const std::string& cell) {
    std::size_t w = 0;
    for (unsigned char c : cell) {
        w += (c & 0xC0) != 0x80;
    }
    return w;
}

// The first `width` characters of valid UTF-8 text, the last three of them "..." when it is longer.
// Blanks at the end (an INQUIRY text is padded with them) are let go first.
std::string shortened(std::string text, std::size_t width) {
    if (widthOf(text) <= width) {
        return text;
    }
    text.erase(text.find_last_not_of(' ') + 1);
    if (widthOf(text) <= width) {
        return text;
    }
    std::string out;
    std::size_t count = 0;
    for (std::string::size_type i = 0; i < text.size(); ++i) {
        const bool starts = (static_cast<unsigned char>(text[i]) & 0xC0) != 0x80;
        if (starts && count++ == width - 3) {
            break;
        }
        out += text[i];
    }
    return out + "...";
}

// Raw cells: blanks and backslashes as \xNN, so that a line splits where its cells end. Quoted values:
// quotes and backslashes, so that the quotes end where the value does.
std::string escaped(const std::string& cell, bool quoted) {
    std::string out;
    for (char c : cell) {
        if (c == '\\' || (quoted ? c == '"' : c == ' ')) {
            static const char kHex[] = "0123456789abcdef";
            out += "\\x";
            out += kHex[(c >> 4) & 0xf];
            out += kHex[c & 0xf];
        } else {
            out += c;
        }
    }
    return out;
}

// The narrowest a shortened column becomes.
constexpr std::size_t kNarrowest = 10;

}  // namespace

const std::vector<Column>& allColumns() {
    using R = const RowFacts&;
    static const std::vector<Column> columns = {
        {"INDEX", "INDEX", "position of the item in the host's storage list", false,
         [](R r, bool) { return std::to_string(r.item.index()); }},
        {"TYPE", "TYPE", "kind of item: disk, logical (partition, logical volume, map) or fs", false,
         [](R r, bool) { return kindOf(r.item.deviceStorageType()); }},
        {"PATH", "PATH", "path of the device, or of the test file in a file system", false,
         [](R r, bool) { return terminalText(r.item.path()); }},
        {"NAME", "NAME", "name of the device", false, [](R r, bool) { return terminalText(r.item.name()); }},
        {"SIZE", "SIZE", "size, in binary units (bytes with -b)", false,
         [](R r, bool bytes) { return bytes ? std::to_string(r.item.size()) : humanSize(r.item.size()); }},
        {"EXCLUSIONS", "EXCLUSIONS", "the ten-column exclusion string, in brackets", false,
         [](R r, bool) { return "[" + terminalText(r.item.exclusionString()) + "]"; }},
        {"REASONS", "REASONS", "the exclusions in words", true,
         [](R r, bool) { return join(exclusionReasons(r.item.exclusionString()), ", "); }},
        {"IN-USE", "IN USE", "why the kernel says the device is in use", true,
         [](R r, bool) { return terminalText(join(inUseOf(r.item), "; ")); }},
        {"INQUIRY", "INQUIRY", "vendor, product and revision from the SCSI INQUIRY", true,
         [](R r, bool) { return terminalText(r.item.inquiry()); }},
        {"SERIAL", "SERIAL", "serial number of the disk", false,
         [](R r, bool) { return identity(r, &Identity::serial); }},
        {"WWN", "WWN", "World Wide Name of the disk", false,
         [](R r, bool) { return identity(r, &Identity::wwn); }},
        {"BYID", "BYID", "the device's /dev/disk/by-id link", true,
         [](R r, bool) { return identity(r, &Identity::byId); }},
        {"ROTA", "ROTA", "1: rotating media, 0: not", false,
         [](R r, bool) { return identity(r, &Identity::rotational); }},
        {"RO", "RO", "1: the device is read-only, 0: writable", false,
         [](R r, bool) { return identity(r, &Identity::readOnly); }},
        {"TRAN", "TRAN", "transport of the disk: sata, sas, nvme, usb, iscsi, fc, virtio, ...", false,
         [](R r, bool) { return identity(r, &Identity::transport); }},
        {"LOG-SEC", "LOG-SEC", "logical sector size in bytes", false,
         [](R r, bool) { return identity(r, &Identity::logicalSectorSize); }},
        {"PHY-SEC", "PHY-SEC", "physical sector size in bytes", false,
         [](R r, bool) { return identity(r, &Identity::physicalSectorSize); }},
        {"FSTYPE", "FSTYPE", "signature on the device: file system, swap, volume or RAID member, ...", false,
         [](R r, bool) { return identity(r, &Identity::fsType); }},
        {"UUID", "UUID", "UUID of that signature", false,
         [](R r, bool) { return identity(r, &Identity::uuid); }},
        {"LABEL", "LABEL", "label of that signature", false,
         [](R r, bool) { return identity(r, &Identity::label); }},
        {"VERDICT", "VERDICT", "excluded, in use, holds data, unknown or candidate", false,
         [](R r, bool) { return r.verdict != nullptr ? std::string(r.verdict->word()) : std::string(); }},
    };
    return columns;
}

std::vector<const Column*> defaultColumns() {
    std::vector<const Column*> out;
    for (const Column& c : allColumns()) {
        if (std::string(c.name) == "SERIAL") {
            break;
        }
        out.push_back(&c);
    }
    return out;
}

bool parseColumns(const std::string& text, std::vector<const Column*>& columns, std::string& why) {
    std::vector<const Column*> out;
    for (std::string::size_type start = 0; start <= text.size();) {
        const std::string::size_type comma = std::min(text.find(',', start), text.size());
        std::string word = text.substr(start, comma - start);
        start = comma + 1;
        std::transform(word.begin(), word.end(), word.begin(),
                       [](unsigned char c) { return std::toupper(c); });
        auto it = std::find_if(allColumns().begin(), allColumns().end(),
                               [&word](const Column& c) { return word == c.name; });
        if (it == allColumns().end()) {
            std::vector<std::string> names;
            for (const Column& c : allColumns()) {
                names.push_back(c.name);
            }
            const std::string meant = nearest(word, names);
            why = "unknown column \"" + word + "\"" + (meant.empty() ? "" : "; did you mean " + meant + "?");
            return false;
        }
        out.push_back(&*it);
    }
    columns = out;
    return true;
}

std::string columnHelp() {
    std::string out;
    for (const Column& c : allColumns()) {
        std::string name = c.name;
        name.resize(std::max<std::size_t>(name.size(), 12), ' ');
        out += "  " + name + c.description + "\n";
    }
    return out;
}

void writeRows(std::ostream& out, const std::vector<std::string>& names,
               const std::vector<std::string>& headers, const std::vector<bool>& shortens,
               const std::vector<std::vector<std::string>>& rows, const Layout& layout) {
    if (layout.mode != Layout::Aligned) {
        if (layout.header && layout.mode == Layout::Raw) {
            out << join(names, " ") << '\n';
        }
        for (const auto& r : rows) {
            std::string line;
            for (std::size_t c = 0; c < r.size(); ++c) {
                line += c == 0 ? "" : " ";
                if (layout.mode == Layout::Pairs) {
                    std::string key = names[c];
                    std::replace(key.begin(), key.end(), '-', '_');
                    line += key + "=\"" + escaped(r[c], true) + "\"";
                } else {
                    line += escaped(r[c], false);
                }
            }
            out << line << '\n';
        }
        return;
    }
    // Fitted to a width, a cell that may be cut counts without the blanks it ends with, which go first.
    auto natural = [&layout](const std::string& cell, bool shortens) {
        return layout.width != 0 && shortens ? widthOf(cell.substr(0, cell.find_last_not_of(' ') + 1))
                                             : widthOf(cell);
    };
    std::vector<std::size_t> widths(names.size(), 0);
    for (std::size_t c = 0; c < names.size(); ++c) {
        widths[c] = layout.header ? widthOf(headers[c]) : 0;
        for (const auto& r : rows) {
            widths[c] = std::max(widths[c], natural(r[c], shortens[c]));
        }
    }
    if (layout.width != 0) {
        std::size_t total = 2 * (widths.size() - 1);
        for (std::size_t w : widths) {
            total += w;
        }
        while (total > layout.width) {
            std::size_t widest = widths.size();
            for (std::size_t c = 0; c < widths.size(); ++c) {
                if (shortens[c] && widths[c] > kNarrowest &&
                    (widest == widths.size() || widths[c] > widths[widest])) {
                    widest = c;
                }
            }
            if (widest == widths.size()) {
                break;
            }
            --widths[widest];
            --total;
        }
    }
    auto print = [&](const std::vector<std::string>& r) {
        std::string line;
        for (std::size_t c = 0; c < r.size(); ++c) {
            const std::string cell = shortens[c] ? shortened(r[c], widths[c]) : r[c];
            line += cell;
            if (c + 1 < r.size()) {
                line.append(widths[c] - std::min(widths[c], widthOf(cell)) + 2, ' ');
            }
        }
        line.erase(line.find_last_not_of(' ') + 1);
        out << line << '\n';
    };
    if (layout.header) {
        print(headers);
    }
    for (const auto& r : rows) {
        print(r);
    }
}

}  // namespace vessa::cli
