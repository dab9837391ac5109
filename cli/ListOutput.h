// How `vessa-storage list` shows a host's storage: an aligned table for people, or one JSON document
// for programs. Items appear in storage-list order.
#pragma once

#include <list>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

#include "cli/JsonWriter.h"
#include "target/Storage.h"

namespace vessa::cli {

// The reasons of a ten-column exclusion string in words, in column order ("system", "boot", ...).
std::vector<std::string> exclusionReasons(const std::string& exclusionString);

// Bytes in binary units with one decimal ("512 B", "1.5 KiB", "931.5 GiB").
std::string humanSize(unsigned long long bytes);

// The label that the XML report shows for a property (the class keeps its display name to itself;
// the report's own row is where it is published). The second form reuses `row` for the rendering.
std::string displayNameOf(const vessa::target::Property& property);
std::string displayNameOf(const vessa::target::Property& property, std::ostringstream& row);

// One host's storage as a JSON object: {"host": NAME, "storage": [ITEM, ...]}, items in list order.
void writeStorageJson(JsonWriter& json, const std::string& hostName,
                      const std::list<vessa::target::Storage*>& storage);

void printTable(std::ostream& out, const std::list<vessa::target::Storage*>& storage);

}  // namespace vessa::cli
