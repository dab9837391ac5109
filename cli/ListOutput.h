// How `vessa-storage list` shows a host's storage: an aligned table or a tree for people, or one JSON
// document for programs. Items appear in storage-list order.
#pragma once

#include <functional>
#include <list>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

#include "cli/JsonWriter.h"
#include "target/DiscoveryReport.h"
#include "target/Storage.h"
#include "target/Verdict.h"

namespace vessa::cli {

// The reasons of a ten-column exclusion string in words, in column order ("system", "boot", ...).
std::vector<std::string> exclusionReasons(const std::string& exclusionString);

// Bytes in binary units with one decimal, the unit chosen so that the number shown stays below 1024
// ("512 B", "1.5 KiB", "1.0 GiB").
std::string humanSize(unsigned long long bytes);

// "disk", "logical" or "fs" for the three kinds discovery makes (else the number).
std::string kindOf(unsigned int type);

// A --type value: a number (the storage-type mask) or words, alone or comma-separated: "disk" (36),
// "logical" (26), "fs" (1), "all" (31). False, with the reason in `why`, for anything else.
bool parseTypes(const std::string& text, unsigned int& mask, std::string& why);

// Why an item's device is in use, as discovery reported it ("inUse" property, reasons joined by "; ").
std::vector<std::string> inUseOf(vessa::target::Storage& item);

// The verdict of an item of the host being shown (Host::verdict).
using VerdictOf = std::function<vessa::target::Verdict(const vessa::target::Storage&)>;

// The label that the XML report shows for a property (the class keeps its display name to itself;
// the report's own row is where it is published). The second form reuses `row` for the rendering.
std::string displayNameOf(const vessa::target::Property& property);
std::string displayNameOf(const vessa::target::Property& property, std::ostringstream& row);

// One host's storage as a JSON object: {"host": NAME, "complete": BOOL, "warnings": [...],
// "storage": [ITEM, ...]}, items in list order; without a report, "complete" and "warnings" are left out.
// Each item ends with "verdict": {"is": WORD, "reasons": [...]} and "candidate": BOOL. `hostMembers`,
// when given, writes members of the host's own behind "host" (a fleet's status of the host).
void writeStorageJson(JsonWriter& json, const std::string& hostName,
                      const std::list<vessa::target::Storage*>& storage,
                      const vessa::target::DiscoveryReport* report, const VerdictOf& verdictOf,
                      const std::function<void(JsonWriter&)>& hostMembers = nullptr);

// Text as a terminal may show it: control characters (C0, DEL, C1) and bytes that are not valid UTF-8
// become "\x1b" (each byte, lower-case hex); valid UTF-8 characters are kept. A backslash is kept as
// it is, so the result can be ambiguous; it is for people to read, not to parse.
std::string terminalText(const std::string& text);

// The table and tree show device text through terminalText.
void printTable(std::ostream& out, const std::list<vessa::target::Storage*>& storage);

// The devices of `report` as a tree, each with the rows of its items among `storage` (the host's
// whole list, which the report's positions refer to) that `shown` lets through, in the table's columns.
// A device without items is shown by name and size.
void printTree(std::ostream& out, const std::list<vessa::target::Storage*>& storage,
               const vessa::target::DiscoveryReport& report,
               const std::function<bool(const vessa::target::Storage&)>& shown);

}  // namespace vessa::cli
