#include "target/KorvoListingWriter.h"

#include <algorithm>
#include <cctype>

namespace vessa::target {

namespace {

// A text as one field: no "~" and no line end inside it.
std::string field(const std::string& text) {
    std::string out;
    out.reserve(text.size());
    for (char c : text) {
        if (c == '~') {
            out += "\\x7e";
        } else if (c == '\n') {
            out += "\\x0a";
        } else {
            out += c;
        }
    }
    return out;
}

std::string propertyValue(Storage& item, const char* key) {
    const Property* p = item.property(key);
    return p == nullptr ? std::string() : p->value();
}

// The item's volume group as discovery recorded it: as a physical volume, as a logical volume, or the
// group itself.
std::string volumeGroupOf(Storage& item) {
    for (const char* key : {"volumeGroupName", "PVVGName", "LVVGName", "VGName"}) {
        const std::string name = propertyValue(item, key);
        if (!name.empty() && name.find_first_not_of(" \t") != std::string::npos) {
            return name;
        }
    }
    return "?";
}

unsigned int signatureOf(Storage& item) {
    const std::string text = propertyValue(item, "signature");
    if (text.empty() || text.size() > 10 || !std::all_of(text.begin(), text.end(), ::isdigit)) {
        return 0;
    }
    const unsigned long long value = std::stoull(text);
    return value > 0xffffffffULL ? 0 : static_cast<unsigned int>(value);
}

}  // namespace

std::string korvoListingLine(Storage& item) {
    const Storage::exclusions reasons = item.exclusionsList() & ~item.exclusionOverrides();
    const bool partitioned = (reasons & Storage::kPartitioned) != 0;
    const std::size_t children = item.children().size();
    const unsigned long long partitions = partitioned ? std::max<std::size_t>(children, 1) : 0;
    unsigned long long size = item.size();
    if ((reasons & Storage::kEmpty) != 0 && size >= 512) {
        size = 0;
    }
    const std::string volumeGroup = (reasons & Storage::kVolumeGroup) != 0 ? volumeGroupOf(item) : "";
    const auto flag = [reasons](Storage::exclusions bit) { return (reasons & bit) != 0 ? "1" : "0"; };

    std::string line = "[" + std::to_string(item.index()) + "]";
    for (const std::string& text :
         {item.path(), item.name(), item.inquiry(), propertyValue(item, "fileSystem"), volumeGroup,
          propertyValue(item, "scsiString"), item.exclusionString()}) {
        line += "~" + field(text);
    }
    line += "~" + std::to_string(static_cast<unsigned int>(item.deviceStorageType()));
    line += "~" + std::to_string(signatureOf(item));
    line += "~" + std::to_string(partitions);
    line += "~" + std::to_string(size);
    line +=
        std::string("~") + flag(Storage::kBoot) + "~" + flag(Storage::kSystem) + "~" + flag(Storage::kSwap);
    return line;
}

void writeKorvoListing(std::ostream& out, const std::list<Storage*>& items) {
    out << kKorvoListingVersion << '\n';
    for (Storage* item : items) {
        out << korvoListingLine(*item) << '\n';
    }
}

}  // namespace vessa::target
