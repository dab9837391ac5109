// The XML storage report: one document per host that carries its own schema, one table per storage
// item plus "Property" for the host's own properties, and one row per property.
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
