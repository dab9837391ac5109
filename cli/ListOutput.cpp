#include "cli/ListOutput.h"

#include <algorithm>
#include <cstdio>
#include <sstream>

namespace vessa::cli {

namespace {

// Column of the exclusion string -> the reason in words. Column 2 (I) is defined but never set by
// discovery; it is named for completeness.
const char* const kReasonWords[10] = {
    "boot", "no signature",       "reserved", "empty", "partitioned", "system", "user", "volume group member",
    "swap", "excluded by listing"};

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

std::string typeWord(unsigned int type) {
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

std::vector<std::string> exclusionReasons(const std::string& exclusionString) {
    std::vector<std::string> reasons;
    for (std::size_t i = 0; i < 10 && i < exclusionString.size(); ++i) {
        if (exclusionString[i] != ' ') {
            reasons.emplace_back(kReasonWords[i]);
        }
    }
    return reasons;
}

std::string humanSize(unsigned long long bytes) {
    static const char* const units[] = {"B", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
    if (bytes < 1024) {
        return std::to_string(bytes) + " B";
    }
    double value = static_cast<double>(bytes);
    int unit = 0;
    while (value >= 1024.0 && unit < 6) {
        value /= 1024.0;
        ++unit;
    }
    char text[32];
    std::snprintf(text, sizeof text, "%.1f %s", value, units[unit]);
    return text;
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
                      const std::list<vessa::target::Storage*>& storage) {
    std::ostringstream row;
    json.beginObject();
    json.key("host");
    json.value(hostName);
    json.key("storage");
    json.beginArray();
    for (vessa::target::Storage* s : storage) {
        json.beginObject();
        json.key("index");
        json.value(static_cast<long long>(s->index()));
        json.key("type");
        json.value(static_cast<unsigned long long>(s->deviceStorageType()));
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
        json.endObject();
    }
    json.endArray();
    json.endObject();
}

void printTable(std::ostream& out, const std::list<vessa::target::Storage*>& storage) {
    std::vector<std::vector<std::string>> rows;
    rows.push_back({"INDEX", "TYPE", "PATH", "NAME", "SIZE", "EXCLUSIONS", "REASONS", "INQUIRY"});
    for (vessa::target::Storage* s : storage) {
        rows.push_back({std::to_string(s->index()), typeWord(s->deviceStorageType()), s->path(), s->name(),
                        humanSize(s->size()), "[" + s->exclusionString() + "]",
                        join(exclusionReasons(s->exclusionString()), ", "), s->inquiry()});
    }
    std::vector<std::size_t> widths(rows.front().size(), 0);
    for (const auto& row : rows) {
        for (std::size_t c = 0; c < row.size(); ++c) {
            widths[c] = std::max(widths[c], row[c].size());
        }
    }
    for (const auto& row : rows) {
        std::string line;
        for (std::size_t c = 0; c < row.size(); ++c) {
            std::string cell = row[c];
            if (c + 1 < row.size()) {
                cell.resize(widths[c], ' ');
                cell += "  ";
            }
            line += cell;
        }
        while (!line.empty() && line.back() == ' ') {
            line.pop_back();
        }
        out << line << '\n';
    }
}

}  // namespace vessa::cli
