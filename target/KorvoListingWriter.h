// The listing tool's side of the version-136 device listing: what a host prints so that
// Host::parseOldKorvoListing rebuilds its storage items on the controller.
//
// One line per item, fields separated by "~": [index], path, name, inquiry, file system, volume group,
// SCSI address, exclusion text, drive type, signature, partition count, size, boot, system, swap.
// The fields are chosen so that the parser's item has the same path, name, size and the same A, M, P,
// S, V and W exclusions as the item written, with these limits:
//   - A "~" inside a text is written "\x7e" and a line end "\x0a", so that a line stays one line of
//     the right fields; the parser then reads those texts with the escapes in them. Blanks at either
//     end of a text are lost to the parser's trimming.
//   - The parser sets M exactly when the size is below 512 bytes. An item with M and a larger size
//     (a device that the kernel reports empty while another source gives a size) is written with size
//     0: the reason to keep it out of testing is worth more than the size. An item below 512 bytes
//     without M (a network file system's pseudo entry of size 0) comes back with M added.
//   - P comes back from a partition count of at least 1 (the number of children, at least 1), V from
//     the volume-group name (the item's own, else "?"), A, S and W from the boot, system and swap
//     flags. G comes back for an item of negative index and no signature, as the parser decides.
#pragma once

#include <list>
#include <ostream>
#include <string>

#include "target/Storage.h"

namespace vessa::target {

// The version line's number.
inline constexpr int kKorvoListingVersion = 136;

// One line for `item`, without its line end.
std::string korvoListingLine(Storage& item);

// The version line, then one line per item, in list order, each ended by "\n".
void writeKorvoListing(std::ostream& out, const std::list<Storage*>& items);

}  // namespace vessa::target
