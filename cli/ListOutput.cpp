#include "cli/ListOutput.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>
#include <sstream>
#include <type_traits>

#include "platform/Str.h"

namespace vessa::cli {

namespace {

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
        // Only the kinds' own bits: any other mask would quietly select nothing.
        const unsigned int known = vessa::target::Storage::discoveredBlockDevice |
                                   vessa::target::Storage::logicalStorageMask |
                                   vessa::target::Storage::fileSystemStorage;
        const std::string digits = text.substr(std::min(text.find_first_not_of('0'), text.size()));
        if (digits.empty() || digits.size() > 2 || (std::stoul(digits) & ~known) != 0) {
            why = "the storage type " + text + " is no mask of the kinds (1 to " + std::to_string(known) +
                  ": disk 36, logical 26, fs 1)";
            return false;
        }
        mask = static_cast<unsigned int>(std::stoul(digits));
        return true;
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
    const vessa::target::Property* inUse = item.property("inUse");
    if (inUse == nullptr) {
        return reasons;
    }
    const std::string& text = inUse->value();
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

namespace {

// Property values are kept as text; a value that is a plain decimal number or true/false is written as
// one, so that consumers need not guess. Leading zeros and signs other than "-" keep a value text (a
// serial "007" stays "007").
void typedValue(JsonWriter& json, const std::string& text) {
    if (text == "true" || text == "false") {
        json.value(text == "true");
        return;
    }
    const std::size_t digits = text.compare(0, 1, "-") == 0 ? 1 : 0;
    const bool number = text.size() > digits && text.size() - digits <= 18 &&
                        text.find_first_not_of("0123456789", digits) == std::string::npos &&
                        (text[digits] != '0' || text.size() == digits + 1) && text != "-0";
    if (number) {
        json.value(std::stoll(text));
    } else {
        json.value(text);
    }
}

template <typename T>
void optional(JsonWriter& json, const char* key, const std::optional<T>& value) {
    json.key(key);
    if (!value) {
        json.null();
    } else if constexpr (std::is_same_v<T, unsigned int>) {
        json.value(static_cast<unsigned long long>(*value));
    } else {
        json.value(*value);
    }
}

constexpr std::size_t kNone = static_cast<std::size_t>(-1);

// The item each item belongs to, by position in the host's list: a partition's disk, a logical
// volume's physical volume, a map's path's map, a file system's device. From the run's device tree;
// a device below two others belongs to the first. kNone at the top, and without a tree.
std::vector<std::size_t> parentsOf(const std::vector<vessa::target::Storage*>& items,
                                   const vessa::target::DiscoveryReport* report) {
    std::vector<std::size_t> parent(items.size(), kNone);
    std::vector<bool> set(items.size(), false);
    if (report == nullptr) {
        return parent;
    }
    const auto& nodes = report->devices;
    std::vector<std::size_t> primary(nodes.size(), kNone), above(nodes.size(), kNone), stack;
    for (std::size_t i = 0; i < nodes.size(); ++i) {
        for (std::size_t at : nodes[i].items) {
            if (at < items.size() && primary[i] == kNone &&
                !(items[at]->deviceStorageType() & vessa::target::Storage::fileSystemStorage)) {
                primary[i] = at;
            }
        }
        stack.resize(static_cast<std::size_t>(nodes[i].depth));
        for (std::size_t k = stack.size(); k-- > 0 && above[i] == kNone;) {
            above[i] = primary[stack[k]];
        }
        stack.push_back(i);
        for (std::size_t at : nodes[i].items) {
            if (at < items.size() && !set[at]) {
                parent[at] = at == primary[i] || primary[i] == kNone ? above[i] : primary[i];
                set[at] = true;
            }
        }
    }
    return parent;
}

}  // namespace

void writeStorageJson(JsonWriter& json, const std::string& hostName,
                      const std::list<vessa::target::Storage*>& storage,
                      const std::list<vessa::target::Storage*>& whole,
                      const vessa::target::DiscoveryReport* report, const FactsOf& factsOf,
                      const std::function<void(JsonWriter&)>& hostMembers) {
    const std::vector<vessa::target::Storage*> items(whole.begin(), whole.end());
    const std::vector<std::size_t> parent = parentsOf(items, report);
    std::map<const vessa::target::Storage*, std::size_t> position;
    for (std::size_t i = 0; i < items.size(); ++i) {
        position[items[i]] = i;
    }
    std::vector<std::vector<long long>> children(items.size());
    for (std::size_t i = 0; i < items.size(); ++i) {
        if (parent[i] != kNone) {
            children[parent[i]].push_back(items[i]->index());
        }
    }
    json.beginObject();
    json.key("schema");
    json.value(static_cast<long long>(kJsonSchema));
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
    // One item's object: what it is, who it is, where it sits in the tree, its properties and its verdict.
    const auto writeItem = [&](JsonWriter& json, vessa::target::Storage* s, std::ostringstream& row) {
        const ItemFacts facts = factsOf(*s);
        const auto at = position.find(s);
        const std::size_t p = at == position.end() ? kNone : at->second;
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
        const vessa::target::Identity& id = facts.identity;
        optional(json, "serial", id.serial);
        optional(json, "wwn", id.wwn);
        optional(json, "byId", id.byId);
        optional(json, "rotational", id.rotational);
        optional(json, "readOnly", id.readOnly);
        optional(json, "transport", id.transport);
        optional(json, "logicalSectorSize", id.logicalSectorSize);
        optional(json, "physicalSectorSize", id.physicalSectorSize);
        optional(json, "fsType", id.fsType);
        optional(json, "uuid", id.uuid);
        optional(json, "label", id.label);
        json.key("parent");
        if (p == kNone || parent[p] == kNone) {
            json.null();
        } else {
            json.value(static_cast<long long>(items[parent[p]]->index()));
        }
        json.key("children");
        json.beginArray();
        for (long long c : p == kNone ? std::vector<long long>() : children[p]) {
            json.value(c);
        }
        json.endArray();
        json.key("properties");
        json.beginArray();
        s->forEachProperty([&](const std::string& key, const vessa::target::Property& property) {
            json.beginObject();
            json.key("key");
            json.value(key);
            json.key("name");
            json.value(displayNameOf(property, row));
            json.key("value");
            typedValue(json, property.value());
            json.key("description");
            json.value(property.description());
            json.key("category");
            json.value(property.category());
            json.endObject();
        });
        json.endArray();
        json.key("verdict");
        json.beginObject();
        json.key("is");
        json.value(facts.verdict.word());
        json.key("reasons");
        json.value(facts.verdict.reasons());
        json.endObject();
        json.key("candidate");
        json.value(facts.verdict.candidate());
        json.endObject();
    };
    json.key("storage");
    json.beginArray();
    // On a large host the writing is the run's longest step on one processor: the items are written
    // by two threads (each item is read, not changed).
    const std::vector<vessa::target::Storage*> shown(storage.begin(), storage.end());
    json.elements(shown.size(), [&](JsonWriter& writer, std::size_t i) {
        thread_local std::ostringstream row;  // one a thread, reused for every property's row
        writeItem(writer, shown[i], row);
    });
    json.endArray();
    json.endObject();
}

namespace {

// Device text comes from the machine, a snapshot or another host: every cell shows it through
// terminalText, so none of it reaches the terminal as it is.
std::vector<std::string> cells(vessa::target::Storage& s, const Layout& layout, const FactsOf& factsOf) {
    ItemFacts facts;
    if (factsOf) {
        facts = factsOf(s);
    }
    const RowFacts row{s, factsOf ? &facts.verdict : nullptr, factsOf ? &facts.identity : nullptr};
    std::vector<std::string> out;
    for (const Column* c : layout.columns) {
        out.push_back(c->cell(row, layout.bytes));
    }
    return out;
}

struct Heading {
    std::vector<std::string> names, headers;
    std::vector<bool> shortens;
};

Heading headingOf(const Layout& layout) {
    Heading h;
    for (const Column* c : layout.columns) {
        h.names.push_back(c->name);
        h.headers.push_back(c->header);
        h.shortens.push_back(c->shortens);
    }
    return h;
}

}  // namespace

void printTable(std::ostream& out, const std::list<vessa::target::Storage*>& storage, const Layout& layout,
                const FactsOf& factsOf) {
    std::vector<std::vector<std::string>> rows;
    for (vessa::target::Storage* s : storage) {
        rows.push_back(cells(*s, layout, factsOf));
    }
    const Heading h = headingOf(layout);
    writeRows(out, h.names, h.headers, h.shortens, rows, layout);
}

void printTree(std::ostream& out, const std::list<vessa::target::Storage*>& storage,
               const vessa::target::DiscoveryReport& report,
               const std::function<bool(const vessa::target::Storage&)>& shown, const Layout& layout,
               const FactsOf& factsOf) {
    const std::vector<vessa::target::Storage*> items(storage.begin(), storage.end());
    Heading h = headingOf(layout);
    h.names.insert(h.names.begin(), "DEVICE");
    h.headers.insert(h.headers.begin(), "DEVICE");
    h.shortens.insert(h.shortens.begin(), false);
    std::size_t sizeAt = 0;
    for (std::size_t c = 0; c < layout.columns.size(); ++c) {
        sizeAt = std::string(layout.columns[c]->name) == "SIZE" ? c + 1 : sizeAt;
    }
    // Raw and pair output are for scripts: the device's name alone, without drawing.
    const bool draw = layout.mode == Layout::Aligned;
    const char* const vertical = layout.ascii ? "| " : "\u2502 ";
    const char* const branch = layout.ascii ? "|-" : "\u251c\u2500";
    const char* const lastBranch = layout.ascii ? "`-" : "\u2514\u2500";
    const char* const beside = layout.ascii ? "|" : "\u2502";
    std::vector<std::vector<std::string>> rows;
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
        for (int d = 1; d < n.depth && draw; ++d) {
            above += open[static_cast<std::size_t>(d)] ? vertical : "  ";
        }
        const std::string prefix = above + (n.depth == 0 || !draw ? "" : last ? lastBranch : branch);
        // Further items of the same device: the lines of the tree go on beside them.
        const std::string more = above + (n.depth == 0 || last || !draw ? "" : beside);
        open[static_cast<std::size_t>(n.depth)] = !last;
        bool first = true;
        for (std::size_t at : n.items) {
            if (at >= items.size() || (shown && !shown(*items[at]))) {
                continue;
            }
            std::vector<std::string> r = cells(*items[at], layout, factsOf);
            r.insert(r.begin(), first ? prefix + terminalText(n.name) : draw ? more : terminalText(n.name));
            rows.push_back(std::move(r));
            first = false;
        }
        if (first) {
            std::vector<std::string> r(h.names.size());
            r[0] = prefix + terminalText(n.name);
            if (sizeAt != 0) {
                r[sizeAt] = layout.bytes ? std::to_string(n.size) : humanSize(n.size);
            }
            rows.push_back(std::move(r));
        }
    }
    writeRows(out, h.names, h.headers, h.shortens, rows, layout);
}

}  // namespace vessa::cli
