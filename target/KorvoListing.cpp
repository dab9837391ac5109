// The listing tool's device listing (format version 136): one "~"-separated line per device, each
// made into a storage item of the host.
#include <iterator>

#include "platform/HostInfo.h"
#include "platform/Log.h"
#include "platform/Str.h"
#include "target/Host.h"
#include "target/ListingLineError.h"

namespace vessa::target {

namespace {

constexpr const char* kUnit = "Host";

// Takes the text before the first "~" as the field and keeps what follows it; without a "~" the whole
// rest is the field.
std::string splitField(std::string& rest) {
    const std::string::size_type tilde = rest.find('~');
    std::string field;
    if (tilde == std::string::npos) {
        field.swap(rest);
        rest.clear();
    } else {
        field = rest.substr(0, tilde);
        rest.erase(0, tilde + 1);
    }
    return field;
}

}  // namespace

void Host::parseOldKorvoListing(std::istringstream& listing, const Storage::storageType& type, callback& cb) {
    VESSA_TRACE(kUnit, "Host::parseOldKorvoListing");
    namespace str = util::str;
    // Paths are flipped to the other separator convention when exactly one side runs "win".
    const bool flipPath = (sal::hostinfo::build::os() == "win") != (buildOs_ == "win");

    // A listing with too many lines is refused before any item is made: each costs the controller far
    // more than its line.
    const auto start = listing.tellg();
    std::size_t lines = 0;
    char last = '\n';
    for (std::istreambuf_iterator<char> it(listing), end; it != end; ++it) {
        last = *it;
        lines += last == '\n' ? 1 : 0;
    }
    lines += last != '\n' ? 1 : 0;
    listing.clear();
    listing.seekg(start);
    if (lines > kListingItems) {
        std::string line;
        for (std::size_t i = 0; i <= kListingItems; ++i) {
            std::getline(listing, line);
        }
        throw ListingLineError(
            str::Exception("the listing holds more than " + std::to_string(kListingItems) + " items"), line,
            kListingItems + 1);
    }

    std::size_t number = 0;
    for (std::string line; std::getline(listing, line);) {
        ++number;
        if (line.size() > kListingLineBytes) {
            throw ListingLineError(
                str::Exception("a line is longer than " + std::to_string(kListingLineBytes) + " bytes"), line,
                number);
        }
        // A number that does not convert ends the listing here, and the error names this line.
        try {
            VESSA_LOG << "Parsing: " << str::trim(line);
            std::string rest = line;
            std::string field = splitField(rest);

            VESSA_LOG << "Checking for device index";
            int index = -1;
            if (!field.empty() && field[0] == '[') {
                str::to(index, field.substr(1));
                field = splitField(rest);
            }
            VESSA_LOG << "Setting path";
            const std::string path = field;
            VESSA_LOG << "Path set to: " << path << ", still parsing " << rest;

            std::string name, inquiry, fileSystem, volumeGroup, scsi, exclusionText;
            unsigned int signature = 0, partitionCount = 0;
            unsigned long long size = 0;
            bool boot = false, system = false, swap = false;
            int driveType = 0;

            auto next = [&](const char* label, std::string& value) {
                value = splitField(rest);
                VESSA_LOG << label << value << ", still parsing " << rest;
            };
            if (!rest.empty())
                next("", name);
            if (!rest.empty())
                next("Inquir: ", inquiry);
            if (!rest.empty())
                next("FS: ", fileSystem);
            if (!rest.empty())
                next("", volumeGroup);
            if (!rest.empty())
                next("SCSI: ", scsi);
            if (!rest.empty())
                next("EX: ", exclusionText);
            std::string text;
            if (!rest.empty()) {
                // Read and checked, never used: a listing with a broken drive type is refused as a whole.
                next("DriveType: ", text);
                str::to(driveType, text);
            }
            if (!rest.empty()) {
                next("Signature: ", text);
                if (!text.empty()) {
                    str::to(signature, text);
                }
            }
            if (!rest.empty()) {
                next("Partition Count: ", text);
                str::to(partitionCount, text);
                if (partitionCount == 0 && exclusionText.find('P') != std::string::npos) {
                    VESSA_LOG << "Partition exclusion found when no partitions present!";
                    partitionCount = 1;
                }
            }
            if (!rest.empty()) {
                next("Size: ", text);
                str::to(size, text);
            }
            if (!rest.empty()) {
                next("Boot: ", text);
                str::to(boot, text);
            }
            if (!rest.empty()) {
                next("System: ", text);
                str::to(system, text);
            }
            if (!rest.empty()) {
                next("Swap: ", text);
                str::to(swap, text);
            }

            VESSA_LOG << "Adding new storage \"" << name << "\"";
            storage_.push_back(new Storage(type, index, str::trim(name), str::trim(path), size,
                                           str::trim(inquiry), str::trim(fileSystem), str::trim(volumeGroup),
                                           str::trim(scsi), exclusionText, signature, partitionCount, boot,
                                           system, swap, flipPath));
            if (cb != nullptr) {
                cb(95, "Added " + path + " to devices");
            }
        } catch (const str::Exception& e) {
            throw ListingLineError(e, line, number);
        }
    }
}

}  // namespace vessa::target
