#include "target/VerdictListing.h"

#include <sstream>

namespace vessa::target {

namespace {

const std::string kUnknownPrefix = "unknown: ";

std::string field(std::string text) {
    for (char& c : text) {
        if (c == '\t' || c == '\n' || c == '\r') {
            c = ' ';
        }
    }
    return text;
}

std::vector<std::string> split(const std::string& line) {
    std::vector<std::string> fields;
    std::string::size_type from = 0;
    for (std::string::size_type tab; (tab = line.find('\t', from)) != std::string::npos; from = tab + 1) {
        fields.push_back(line.substr(from, tab - from));
    }
    fields.push_back(line.substr(from));
    return fields;
}

}  // namespace

void writeVerdictListing(std::ostream& out, const std::vector<std::string>& warnings,
                         const std::vector<Verdict>& verdicts) {
    out << kVerdictsMark << '\n';
    for (const std::string& w : warnings) {
        out << "w\t" << field(w) << '\n';
    }
    for (const Verdict& v : verdicts) {
        out << 'v';
        for (int k = Verdict::Excluded; k < Verdict::Candidate; ++k) {
            for (std::string r : v.reasonsOf(static_cast<Verdict::Kind>(k))) {
                // As it was given: the verdict itself puts "unknown: " in front of those reasons.
                if (k == Verdict::Unknown && r.compare(0, kUnknownPrefix.size(), kUnknownPrefix) == 0) {
                    r.erase(0, kUnknownPrefix.size());
                }
                out << '\t' << k << '\t' << field(r);
            }
        }
        out << '\n';
    }
}

std::string cutVerdictListing(std::string& output) {
    const std::string mark = std::string(kVerdictsMark) + "\n";
    std::string::size_type at = output.compare(0, mark.size(), mark) == 0 ? 0 : output.find("\n" + mark);
    if (at == std::string::npos) {
        return "";
    }
    at += at == 0 ? 0 : 1;
    std::string verdicts = output.substr(at + mark.size());
    output.resize(at);
    return verdicts;
}

bool parseVerdictListing(const std::string& text, std::size_t items, std::vector<std::string>& warnings,
                         std::vector<Verdict>& verdicts) {
    warnings.clear();
    verdicts.clear();
    std::istringstream in(text);
    bool understood = true;
    for (std::string line; understood && std::getline(in, line);) {
        const std::vector<std::string> f = split(line);
        if (f[0] == "w" && f.size() == 2) {
            warnings.push_back(f[1]);
            continue;
        }
        understood = f[0] == "v" && f.size() % 2 == 1;
        Verdict v;
        for (std::size_t i = 1; understood && i < f.size(); i += 2) {
            understood = f[i].size() == 1 && f[i][0] >= '0' && f[i][0] < '0' + Verdict::Candidate;
            if (understood) {
                v.add(static_cast<Verdict::Kind>(f[i][0] - '0'), f[i + 1]);
            }
        }
        verdicts.push_back(v);
    }
    if (!understood || verdicts.size() != items) {
        warnings.clear();
        verdicts.clear();
        return false;
    }
    return true;
}

}  // namespace vessa::target
