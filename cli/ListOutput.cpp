#include "cli/ListOutput.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <sstream>

#include "platform/Str.h"

namespace vessa::cli {

namespace {

// The IN USE column shows this much of the reasons; the JSON document has them whole.
constexpr std::size_t kInUseWidth = 40;

// The first `width` characters of valid UTF-8 text, the last three of them "..." when it is longer.
std::string shortened(const std::string& text, std::size_t width) {
    std::string::size_type cut = 0, end = 0;
    std::size_t count = 0;
    for (std::string::size_type i = 0; i < text.size(); ++i) {
        if ((static_cast<unsigned char>(text[i]) & 0xC0) != 0x80) {
            if (count == width - 3) {
                cut = i;
            }
            if (count == width) {
                end = i;
                break;
            }
            ++count;
        }
    }
    return end == 0 ? text : text.substr(0, cut) + "...";
}

std::string unescape(const std::string& text) {
    static const std::pair<const char*, char> entities[] = {
        {"&lt;", '<'}, {"&gt;", '>'}, {"&quot;", '"'}, {"&apos;", '\''}, {"&amp;", '&'}};
    std::string out;
    for (std::string::size_type i = 0; i < text.size();) {
        bool replaced = false;
        if (text[i] == '&') {
            for (const auto& [entity, c] : entities) {
                std::string e(entity);
                if (text.compare(i, e.size(), e) == 0) {
                    out += c;
                    i += e.size();
                    replaced = true;
                    break;
                }
            }
        }
        if (!replaced) {
            out += text[i++];
        }
    }
    return out;
}

std::string join(const std::vector<std::string>& words, const char* separator) {
    std::string out;
    for (const std::string& w : words) {
        if (!out.empty()) {
            out += separator;
        }
        out += w;
    }
    return out;
}

}  // namespace

std::string terminalText(const std::string& text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size();) {
        unsigned int code = 0;
        const std::size_t n = vessa::util::str::utf8Length(text, i, &code);
        if (n != 0 && code >= 0x20 && (code < 0x7F || code > 0x9F)) {
            out.append(text, i, n);
            i += n;
            continue;
        }
        // Every byte of the control character, or the one byte that starts no character.
        static const char kHex[] = "0123456789abcdef";
        for (std::size_t k = 0; k < std::max<std::size_t>(n, 1); ++k) {
            const unsigned char c = static_cast<unsigned char>(text[i + k]);
            out += "\\x";
            out += kHex[c >> 4];
            out += kHex[c & 0xf];
        }
        i += std::max<std::size_t>(n, 1);
    }
    return out;
}

std::vector<std::string> exclusionReasons(const std::string& exclusionString) {
    return vessa::target::Verdict::exclusionWords(exclusionString);
}

std::string humanSize(unsigned long long bytes) {
    static const char* const units[] = {"B", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
    if (bytes < 1024) {
        return std::to_string(bytes) + " B";
    }
    double value = static_cast<double>(bytes);
    int unit = 0;
    // Decided on the number as it will be shown: 1073741823 bytes would round to "1024.0 MiB".
    while (unit < 6 && std::round(value * 10.0) / 10.0 >= 1024.0) {
        value /= 1024.0;
        ++unit;
    }
    char text[32];
    std::snprintf(text, sizeof text, "%.1f %s", value, units[unit]);
    return text;
}

std::string kindOf(unsigned int type) {
    if (type & vessa::target::Storage::physicalStorage) {
        return "disk";
    }
    if (type & vessa::target::Storage::fileSystemStorage) {
        return "fs";
    }
    if (type & vessa::target::Storage::logicalStorageMask) {
        return "logical";
    }
    return std::to_string(type);
}

bool parseTypes(const std::string& text, unsigned int& mask, std::string& why) {
    if (!text.empty() && text.find_first_not_of("0123456789") == std::string::npos) {
        try {
            mask = static_cast<unsigned int>(std::stoul(text));
            return true;
        } catch (const std::exception&) {
            why = "the storage type " + text + " is too large";
            return false;
        }
    }
    static const std::pair<const char*, unsigned int> words[] = {
        {"disk", vessa::target::Storage::discoveredBlockDevice},
        {"logical", vessa::target::Storage::logicalStorageMask},
        {"fs", vessa::target::Storage::fileSystemStorage},
        {"all", vessa::target::Storage::allStorage}};
    unsigned int result = 0;
    for (std::string::size_type start = 0; start <= text.size();) {
        const std::string::size_type comma = std::min(text.find(',', start), text.size());
        const std::string word = text.substr(start, comma - start);
        start = comma + 1;
        auto it = std::find_if(std::begin(words), std::end(words),
                               [&word](const auto& w) { return word == w.first; });
        if (it == std::end(words)) {
            why = "unknown storage type \"" + word + "\" (disk, logical, fs, all or a number)";
            return false;
        }
        result |= it->second;
    }
    if (result == 0) {
        why = "no storage type given (disk, logical, fs, all or a number)";
        return false;
    }
    mask = result;
    return true;
}

std::vector<std::string> inUseOf(vessa::target::Storage& item) {
    std::vector<std::string> reasons;
    auto it = item.properties().find("inUse");
    if (it == item.properties().end()) {
        return reasons;
    }
    const std::string& text = it->second.value();
    for (std::string::size_type start = 0; start < text.size();) {
        const std::string::size_type end = text.find("; ", start);
        reasons.push_back(text.substr(start, end == std::string::npos ? std::string::npos : end - start));
        start = end == std::string::npos ? text.size() : end + 2;
    }
    return reasons;
}

std::string displayNameOf(const vessa::target::Property& property) {
    std::ostringstream row;
    return displayNameOf(property, row);
}

std::string displayNameOf(const vessa::target::Property& property, std::ostringstream& row) {
    row.str(std::string());
    property.print(row, "p");
    const std::string text = row.str();
    const std::string open = "<DisplayName>";
    std::string::size_type b = text.find(open);
    std::string::size_type e = text.find("</DisplayName>");
    if (b == std::string::npos || e == std::string::npos) {
        return "";
    }
    b += open.size();
    return unescape(text.substr(b, e - b));
}

void writeStorageJson(JsonWriter& json, const std::string& hostName,
                      const std::list<vessa::target::Storage*>& storage,
                      const vessa::target::DiscoveryReport* report, const VerdictOf& verdictOf,
                      const std::function<void(JsonWriter&)>& hostMembers) {
    std::ostringstream row;
    json.beginObject();
    json.key("host");
    json.value(hostName);
    if (hostMembers) {
        hostMembers(json);
    }
    if (report != nullptr) {
        json.key("complete");
        json.value(report->complete());
        json.key("warnings");
        json.value(report->warnings);
    }
    json.key("storage");
    json.beginArray();
    for (vessa::target::Storage* s : storage) {
        json.beginObject();
        json.key("index");
        json.value(static_cast<long long>(s->index()));
        json.key("type");
        json.value(static_cast<unsigned long long>(s->deviceStorageType()));
        json.key("kind");
        json.value(kindOf(s->deviceStorageType()));
        json.key("name");
        json.value(s->name());
        json.key("path");
        json.value(s->path());
        json.key("size");
        json.value(static_cast<unsigned long long>(s->size()));
        json.key("inquiry");
        json.value(s->inquiry());
        json.key("exclusions");
        json.value(s->exclusionString());
        json.key("reasons");
        json.value(exclusionReasons(s->exclusionString()));
        json.key("inUse");
        json.value(inUseOf(*s));
        json.key("properties");
        json.beginObject();
        for (const auto& [key, p] : s->properties()) {
            json.key(key);
            json.beginObject();
            json.key("value");
            json.value(p.value());
            json.key("displayName");
            json.value(displayNameOf(p, row));
            json.key("category");
            json.value(p.category());
            json.key("description");
            json.value(p.description());
            json.endObject();
        }
        json.endObject();
        const vessa::target::Verdict v = verdictOf(*s);
        json.key("verdict");
        json.beginObject();
        json.key("is");
        json.value(v.word());
        json.key("reasons");
        json.value(v.reasons());
        json.endObject();
        json.key("candidate");
        json.value(v.candidate());
        json.endObject();
    }
    json.endArray();
    json.endObject();
}

namespace {

const std::vector<std::string> kHeader = {"INDEX",      "TYPE",    "PATH",   "NAME",   "SIZE",
                                          "EXCLUSIONS", "REASONS", "IN USE", "INQUIRY"};

std::vector<std::string> row(vessa::target::Storage& s) {
    // Device text comes from the machine, a snapshot or another host: none of it reaches the terminal
    // as it is.
    return {std::to_string(s.index()),
            kindOf(s.deviceStorageType()),
            terminalText(s.path()),
            terminalText(s.name()),
            humanSize(s.size()),
            "[" + terminalText(s.exclusionString()) + "]",
            join(exclusionReasons(s.exclusionString()), ", "),
            shortened(terminalText(join(inUseOf(s), "; ")), kInUseWidth),
            terminalText(s.inquiry())};
}

// Aligned columns, two blanks apart, no blanks at the ends of lines. The cells are valid UTF-8 (see
// terminalText); widths count characters, each one column, as the tree's drawing characters are.
void printRows(std::ostream& out, const std::vector<std::vector<std::string>>& rows) {
    auto width = [](const std::string& cell) {
        std::size_t w = 0;
        for (unsigned char c : cell) {
            w += (c & 0xC0) != 0x80;
        }
        return w;
    };
    std::vector<std::size_t> widths(rows.front().size(), 0);
    for (const auto& r : rows) {
        for (std::size_t c = 0; c < r.size(); ++c) {
            widths[c] = std::max(widths[c], width(r[c]));
        }
    }
    for (const auto& r : rows) {
        std::string line;
        for (std::size_t c = 0; c < r.size(); ++c) {
            line += r[c];
            if (c + 1 < r.size()) {
                line.append(widths[c] - width(r[c]) + 2, ' ');
            }
        }
        line.erase(line.find_last_not_of(' ') + 1);
        out << line << '\n';
    }
}

}  // namespace

void printTable(std::ostream& out, const std::list<vessa::target::Storage*>& storage) {
    std::vector<std::vector<std::string>> rows = {kHeader};
    for (vessa::target::Storage* s : storage) {
        rows.push_back(row(*s));
    }
    printRows(out, rows);
}

void printTree(std::ostream& out, const std::list<vessa::target::Storage*>& storage,
               const vessa::target::DiscoveryReport& report,
               const std::function<bool(const vessa::target::Storage&)>& shown) {
    const std::vector<vessa::target::Storage*> items(storage.begin(), storage.end());
    std::vector<std::string> header = kHeader;
    header.insert(header.begin(), "DEVICE");
    std::vector<std::vector<std::string>> rows = {header};
    const auto& nodes = report.devices;
    // Which depths still have a node to come below the current one: they draw a vertical line.
    std::vector<bool> open;
    for (std::size_t i = 0; i < nodes.size(); ++i) {
        const vessa::target::DeviceNode& n = nodes[i];
        bool last = true;
        for (std::size_t k = i + 1; k < nodes.size() && nodes[k].depth >= n.depth; ++k) {
            if (nodes[k].depth == n.depth) {
                last = false;
                break;
            }
        }
        open.resize(static_cast<std::size_t>(n.depth) + 1);
        std::string above;
        for (int d = 1; d < n.depth; ++d) {
            above += open[static_cast<std::size_t>(d)] ? "\u2502 " : "  ";
        }
        const std::string prefix = above + (n.depth == 0 ? "" : last ? "\u2514\u2500" : "\u251c\u2500");
        // Further items of the same device: the lines of the tree go on beside them.
        const std::string more = above + (n.depth == 0 || last ? "" : "\u2502");
        open[static_cast<std::size_t>(n.depth)] = !last;
        bool first = true;
        for (std::size_t at : n.items) {
            if (at >= items.size() || (shown && !shown(*items[at]))) {
                continue;
            }
            std::vector<std::string> r = row(*items[at]);
            r.insert(r.begin(), first ? prefix + terminalText(n.name) : more);
            rows.push_back(std::move(r));
            first = false;
        }
        if (first) {
            std::vector<std::string> r(header.size());
            r[0] = prefix + terminalText(n.name);
            r[5] = humanSize(n.size);
            rows.push_back(std::move(r));
        }
    }
    printRows(out, rows);
}

}  // namespace vessa::cli
