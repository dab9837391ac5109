// The XML storage report: one document per host that carries its own schema, one table per storage
// item plus "Property" for the host's own properties, and one row per property.
#include <algorithm>

#include "platform/Log.h"
#include "platform/SafeFile.h"
#include "target/Host.h"

namespace vessa::target {

namespace {

constexpr const char* kUnit = "Host";

void PrintTableSchema(std::ostream& os, const std::string& name) {
    VESSA_TRACE(kUnit, "PrintTableSchema(::std::string name)");
    os << "          <xs:element name=\"" << name << "\">\n"
       << "            <xs:complexType>\n"
       << "              <xs:sequence>\n"
       << "                <xs:element name=\"Name\" type=\"xs:string\" />\n"
       << "                <xs:element name=\"DisplayName\" type=\"xs:string\" minOccurs=\"0\" />\n"
       << "                <xs:element name=\"Value\" type=\"xs:string\" minOccurs=\"0\" />\n"
       << "                <xs:element name=\"Category\" type=\"xs:string\" minOccurs=\"0\" />\n"
       << "                <xs:element name=\"Description\" type=\"xs:string\" minOccurs=\"0\" />\n"
       << "              </xs:sequence>\n"
       << "            </xs:complexType>\n"
       << "          </xs:element>\n";
}

// The host unit's own copy of the element-name rule, kept for its callers; it behaves exactly as
// Property::cleanForXmlElement.
void XmlSafeName(std::string& name) {
    VESSA_TRACE(kUnit, "XmlSafeName(::std::string& name)");
    Property::cleanForXmlElement(name);
}

std::string tableName(const Storage& s) {
    std::string name = s.path();
    if (s.deviceStorageType() & Storage::fileSystemStorage) {
        name += "_fs";
    }
    XmlSafeName(name);
    return name;
}

// A report of a local run that could not see everything (a warning, or an item that could not be
// checked) says so, and gives each item's verdict, in two
// tables of its own beside the items' ("Completeness", "Verdict"; an item's table name starts with
// "x2f", so none can be either), with the rows the others have: a reader that knows only the items'
// tables skips them, and the schema still covers every row.
bool partial(const DiscoveryReport& report, const std::map<const Storage*, Verdict>& verdicts) {
    if (verdicts.empty()) {
        return false;  // no local run: nothing to say
    }
    return !report.complete() || std::any_of(verdicts.begin(), verdicts.end(),
                                             [](const auto& v) { return v.second.has(Verdict::Unknown); });
}

void printPartial(std::ostream& os, const DiscoveryReport& report, const std::list<Storage*>& storage,
                  const Host& host) {
    Property("complete", "false", "Complete",
             "The run could not see everything: items may be missing or lack reasons; see the warnings.",
             "General")
        .print(os, "Completeness");
    for (const std::string& w : report.warnings) {
        Property("warning", w, "Warning", "What the run could not see.", "General").print(os, "Completeness");
    }
    for (const Storage* s : storage) {
        const Verdict v = host.verdict(*s);
        std::string reasons;
        for (const std::string& r : v.reasons()) {
            reasons += (reasons.empty() ? "" : "; ") + r;
        }
        Property(tableName(*s), v.word(), "Verdict", reasons, v.candidate() ? "Candidate" : "Not a candidate")
            .print(os, "Verdict");
    }
}

}  // namespace

void Host::printStorageTableSchemas(std::ostream& os) {
    VESSA_TRACE(kUnit, "PrintTableSchemas()");
    PrintTableSchema(os, "Property");
    for (Storage* s : storage_) {
        PrintTableSchema(os, tableName(*s));
    }
}

void Host::printStorage(std::ostream& os) {
    os << "<?xml version=\"1.0\" standalone=\"yes\"?>\n"
       << "<Host>\n"
       << "  <xs:schema id=\"Host\" xmlns=\"\" xmlns:xs=\"http://www.w3.org/2001/XMLSchema\" "
          "xmlns:msdata=\"urn:schemas-microsoft-com:xml-msdata\">\n"
       << "    <xs:element name=\"Host\" msdata:IsDataSet=\"true\" msdata:UseCurrentLocale=\"true\">\n"
       << "      <xs:complexType>\n"
       << "        <xs:choice minOccurs=\"0\" maxOccurs=\"unbounded\">\n";
    printStorageTableSchemas(os);
    const bool isPartial = partial(discoveryReport_, verdicts_);
    if (isPartial) {
        PrintTableSchema(os, "Completeness");
        PrintTableSchema(os, "Verdict");
    }
    os << "        </xs:choice>\n"
       << "      </xs:complexType>\n"
       << "    </xs:element>\n"
       << "  </xs:schema>\n";
    for (const Property& p : extendedInfo_) {
        p.print(os, "Property");
    }
    for (Storage* s : storage_) {
        s->print(os);
    }
    if (isPartial) {
        printPartial(os, discoveryReport_, storage_, *this);
    }
    os << "</Host>\n";
    os.flush();
}

void Host::printStorage(bool cachedOnly) {
    VESSA_TRACE(kUnit, "Host::printStorage");
    if (storage_.empty() && !cachedOnly) {
        Request request(Storage::allStorage, {});
        ThreadDrives(request);
    }
    // Whole or not at all (platform/SafeFile.h). A file that cannot be written is not reported to the
    // caller, as for every other report write; the log says why.
    try {
        sal::posix::SafeFile out(name() + ".xml", 0644);
        printStorage(out.stream());
        out.commit();
    } catch (const sal::posix::FileWriteError& e) {
        VESSA_LOG << e.why();
    }
}

bool Host::sortStorage(Storage* a, Storage* b) {
    VESSA_TRACE(kUnit, "sortStorage");
    const std::string& sa = a->sortName();
    const std::string& sb = b->sortName();
    const std::string& pa = a->path();
    const std::string& pb = b->path();
    VESSA_LOG << "Comparing " << sa << " to " << sb;
    bool before;
    if (pa.size() == pb.size() && sa.size() == sb.size()) {
        VESSA_LOG << "Same length";
        before = pa < pb;
    } else if (sa.size() != sb.size()) {
        before = sa.size() < sb.size();
    } else {
        before = sa < sb;
    }
    if (before) {
        VESSA_LOG << pa << " comes before " << pb;
    } else {
        VESSA_LOG << pa << " belongs after " << pb;
    }
    return before;
}

}  // namespace vessa::target
