// How `vessa-storage list` shows a host's storage: an aligned table or a tree for people, or one JSON
// document for programs. Items appear in storage-list order.
#pragma once

#include <functional>
#include <list>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

#include "cli/Columns.h"
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

// A --type value: a number (a storage-type mask of the kinds' bits, 1 to 63) or words, alone or
// comma-separated: "disk" (36), "logical" (26), "fs" (1), "all" (31). False, with the reason in `why`,
// for anything else (0, 64, a number too large for a mask).
bool parseTypes(const std::string& text, unsigned int& mask, std::string& why);

// Why an item's device is in use, as discovery reported it ("inUse" property, reasons joined by "; ").
std::vector<std::string> inUseOf(vessa::target::Storage& item);

// What the host decided about an item, for the columns that show it.
struct ItemFacts {
    vessa::target::Verdict verdict;
    vessa::target::Identity identity;
};
using FactsOf = std::function<ItemFacts(const vessa::target::Storage&)>;

// The label that the XML report shows for a property (the class keeps its display name to itself;
// the report's own row is where it is published). The second form reuses `row` for the rendering.
std::string displayNameOf(const vessa::target::Property& property);
std::string displayNameOf(const vessa::target::Property& property, std::ostringstream& row);

// The version of the JSON document's shape: a consumer checks it before reading anything else. The
// document is described by the JSON Schema in schema/storage-list.schema.json; any change to its shape
// that a consumer could trip over (a field removed or renamed, a type changed) raises the number.
constexpr int kJsonSchema = 1;

// One host's storage as a JSON object: {"schema": 1, "host": NAME, "complete": BOOL, "warnings": [...],
// "storage": [ITEM, ...]}, items of `storage` in list order; without a report, "complete" and
// "warnings" are left out. `whole` is the host's whole list, which the report's device tree refers
// to: an item's "parent" and "children" are the "index" values of the items it belongs to and that
// belong to it there (also when the filter of `storage` leaves them out), null and [] without a tree.
// Each item carries its identity (null where unknown), its properties as a list of {"key", "name",
// "value", "description", "category"} (a value that is a decimal number or true/false written as one),
// "verdict": {"is": WORD, "reasons": [...]} and "candidate": BOOL. `hostMembers`, when given, writes
// members of the host's own behind "host" (a fleet's status of the host).
void writeStorageJson(JsonWriter& json, const std::string& hostName,
                      const std::list<vessa::target::Storage*>& storage,
                      const std::list<vessa::target::Storage*>& whole,
                      const vessa::target::DiscoveryReport* report, const FactsOf& factsOf,
                      const std::function<void(JsonWriter&)>& hostMembers = nullptr);

// Text as a terminal may show it: control characters (C0, DEL, C1) and bytes that are not valid UTF-8
// become "\x1b" (each byte, lower-case hex); valid UTF-8 characters are kept. A backslash is kept as
// it is, so the result can be ambiguous; it is for people to read, not to parse.
std::string terminalText(const std::string& text);

// The table and tree show device text through terminalText. Without `factsOf` the verdict and
// identity columns are empty.
void printTable(std::ostream& out, const std::list<vessa::target::Storage*>& storage,
                const Layout& layout = Layout(), const FactsOf& factsOf = nullptr);

// The devices of `report` as a tree, each with the rows of its items among `storage` (the host's
// whole list, which the report's positions refer to) that `shown` lets through, in the table's columns.
// A device without items is shown by name and size. Raw and pair output name each row's device
// without drawing the tree.
void printTree(std::ostream& out, const std::list<vessa::target::Storage*>& storage,
               const vessa::target::DiscoveryReport& report,
               const std::function<bool(const vessa::target::Storage&)>& shown,
               const Layout& layout = Layout(), const FactsOf& factsOf = nullptr);

}  // namespace vessa::cli
