// The columns of `vessa-storage list` and the three ways a table of them is written: aligned for
// people, raw and KEY="value" pairs for scripts.
//
// A column has a name (what -o takes, what raw and pair output use as header and key) and, for the
// aligned table, a header ("IN USE" keeps its blank there, as the table always showed it). Unknown
// facts are empty cells: a loop device has no serial, an old snapshot recorded no identity.
#pragma once

#include <cstddef>
#include <ostream>
#include <string>
#include <vector>

#include "target/Identity.h"
#include "target/Storage.h"
#include "target/Verdict.h"

namespace vessa::cli {

// What one row shows: the item, and what the host decided (nullptr: not known, the cell is empty).
struct RowFacts {
    vessa::target::Storage& item;
    const vessa::target::Verdict* verdict = nullptr;
    const vessa::target::Identity* identity = nullptr;
};

struct Column {
    const char* name;         // "SIZE", "LOG-SEC"
    const char* header;       // in the aligned table
    const char* description;  // for --help
    bool shortens;            // may be cut ("...") to fit a width
    std::string (*cell)(const RowFacts& row, bool bytes);
};

// Every column, in the order --help lists them.
const std::vector<Column>& allColumns();
// The table's columns when none are asked for.
std::vector<const Column*> defaultColumns();
// "NAME,SIZE,WWN" (names compare without regard to case); false with the reason in `why` for a
// name that is no column or an empty list.
bool parseColumns(const std::string& text, std::vector<const Column*>& columns, std::string& why);
// One line per column, "  NAME  description", for --help.
std::string columnHelp();

struct Layout {
    enum Mode { Aligned, Raw, Pairs };
    std::vector<const Column*> columns = defaultColumns();
    Mode mode = Aligned;
    bool header = true;
    bool bytes = false;     // SIZE in bytes instead of binary units
    std::size_t width = 0;  // aligned lines fit in this many characters (0: no limit)
    bool ascii = false;     // the tree is drawn with ASCII characters
};

// Writes `rows` (cells valid UTF-8, see terminalText; one per column of `names`) as the layout asks.
// `names` and `headers` are the key and the aligned header of each column; `shortens` says which may be
// cut. Aligned: columns two blanks apart, no blanks at line ends, widths in characters. Raw: cells one
// blank apart, blanks and backslashes in them written \x20 and \x5c, so that a line splits at its
// blanks. Pairs: NAME="value" one blank apart, the name's "-" written "_" (a shell variable name), a
// quote and a backslash in a value written \x22 and \x5c.
void writeRows(std::ostream& out, const std::vector<std::string>& names,
               const std::vector<std::string>& headers, const std::vector<bool>& shortens,
               const std::vector<std::vector<std::string>>& rows, const Layout& layout);

}  // namespace vessa::cli
