#include "target/Host.h"

#include <algorithm>
#include <new>

#include "platform/Exception.h"
#include "platform/Log.h"
#include "platform/Str.h"
#include "platform/view/SystemView.h"
#include "target/LicenseFile.h"

namespace vessa::target {

namespace {

constexpr const char* kUnit = "Host";

bool isSeparator(char c) {
    return c == '/' || c == '\\';
}

}  // namespace

Host::Host(const vessa::hax::Host& agentHost) : agent_(agentHost) {
    refreshHostInfo();
}

Host::Host(const Host& other)
    : agent_(other.agent_),
      license_(other.license_),
      toolsVersion_(other.toolsVersion_),
      installDir_(other.installDir_),
      buildOs_(other.buildOs_),
      buildCpu_(other.buildCpu_),
      osName_(other.osName_),
      osVersion_(other.osVersion_),
      osBits_(other.osBits_),
      cpuName_(other.cpuName_),
      cpuCount_(other.cpuCount_),
      extendedInfo_(other.extendedInfo_),
      queryFailure_(other.queryFailure_),
      verdictsFromHost_(other.verdictsFromHost_),
      storage_(other.storage_),
      discoveryReport_(other.discoveryReport_),
      verdicts_(other.verdicts_),
      identities_(other.identities_) {}

Host& Host::operator=(const Host& other) {
    if (this != &other) {
        // The target's own items go with it (the destructor runs in place); the source's are then
        // shared, as a copy shares them.
        this->~Host();
        new (this) Host(other);
    }
    return *this;
}

Host::~Host() {
    releaseStorage();
}

void Host::releaseStorage() {
    VESSA_LOG_AT(kUnit, "Host::~Host")
        << "Descructing all storage items on " << (agent_.valid() ? agent_.name() : "");
    for (Storage* s : storage_) {
        delete s;
    }
    storage_.clear();
    verdicts_.clear();
    identities_.clear();
}

void Host::setVerdict(const Storage* item, Verdict verdict) {
    verdicts_[item] = std::move(verdict);
}

void Host::setIdentity(const Storage* item, Identity identity) {
    identities_[item] = std::move(identity);
}

Identity Host::identity(const Storage& item) const {
    auto it = identities_.find(&item);
    return it != identities_.end() ? it->second : Identity();
}

Verdict Host::verdict(const Storage& item) const {
    auto it = verdicts_.find(&item);
    if (it != verdicts_.end()) {
        return it->second;
    }
    Verdict v;
    if (std::find(storage_.begin(), storage_.end(), &item) == storage_.end()) {
        v.add(Verdict::Unknown, "it is not an item of this host's list");
    } else {
        // Only a local run asks the kernel and the devices; another host's listing tells none of it.
        v.add(Verdict::Unknown,
              "whether it is in use or holds data (the listing of a remote host does not say)");
    }
    return v;
}

Host* Host::named(const std::string& name, bool flag) {
    return new Host(vessa::hax::Host::named(name, flag));
}

Host Host::fromCache(const std::string& name) {
    return Host(vessa::hax::Host::fromCache(name));
}

int Host::fill(std::list<Host*>& hostList) {
    VESSA_TRACE(kUnit, "Host::fill(List& hostList)");
    std::list<vessa::hax::Host> known;
    vessa::hax::Host::fill(known);
    for (const vessa::hax::Host& h : known) {
        hostList.push_back(new Host(h));
    }
    return static_cast<int>(hostList.size());
}

bool Host::exists(const std::string& name) {
    VESSA_TRACE(kUnit, "Host::exists(List& hostList)");
    std::list<vessa::hax::Host> known;
    vessa::hax::Host::fill(known);
    const std::string wanted = util::str::toLower(name);
    for (const vessa::hax::Host& h : known) {
        if (util::str::toLower(h.name()) == wanted || h.address().text() == wanted) {
            return true;
        }
        for (const std::string& a : h.addressList()) {
            if (a == wanted) {
                return true;
            }
        }
    }
    return false;
}

int Host::fill(const std::string& directory, std::list<vessa::hax::FSItem>& items) {
    try {
        return agent_.fill(directory, items);
    } catch (const vessa::Exception&) {
        return 0;
    } catch (const std::exception&) {
        return 0;
    }
}

bool Host::existsFSItem(const std::string& path, vessa::hax::FSItem::typecode type) {
    std::string::size_type end = path.size();
    while (end > 0 && isSeparator(path[end - 1])) {
        --end;
    }
    std::string::size_type cut = end;
    while (cut > 0 && !isSeparator(path[cut - 1])) {
        --cut;
    }
    // Without any separator the whole path is the directory and the item name is empty.
    const std::string directory = cut == 0 ? path.substr(0, end) : path.substr(0, cut - 1);
    std::string item = util::str::toLower(path.substr(cut == 0 ? end : cut - 1));
    while (!item.empty() && isSeparator(item.back())) {
        item.pop_back();
    }
    std::string::size_type lead = 0;
    while (lead < item.size() && isSeparator(item[lead])) {
        ++lead;
    }
    item.erase(0, lead);

    if (agent_.valid() && agent_.isLocal()) {
        // The same question asked of this machine's view, which can answer it from an index while a
        // discovery run lists the same directory for every device.
        std::vector<sal::sys::DirEntry::Type> types;
        sal::sys::current().entryTypes(directory, item, types);
        for (sal::sys::DirEntry::Type t : types) {
            if (type == vessa::hax::FSItem::any || vessa::hax::FSItem::of(t) == type) {
                return true;
            }
        }
        return false;
    }
    std::list<vessa::hax::FSItem> items;
    fill(directory, items);
    for (const vessa::hax::FSItem& i : items) {
        if (util::str::toLower(i.name()) == item && (type == vessa::hax::FSItem::any || i.type() == type)) {
            return true;
        }
    }
    return false;
}

int Host::getExtendedInfo(std::list<Property>& /*info*/) const {
    return 0;
}

void Host::setLoggingStream(std::ostream& stream) {
    vessa::log::setStream(&stream);
}

void Host::setCommandTimeout(unsigned int seconds) {
    sal::exec::RunLimits limits = sal::sys::commandLimits();
    limits.timeoutSeconds = seconds;
    sal::sys::setCommandLimits(limits);
    // The launcher bounds the remote program by the same time.
    sal::sys::setCommandVariable("VESSA_COMMAND_TIMEOUT", std::to_string(seconds));
}

void Host::refreshHostInfo() {
    VESSA_TRACE(kUnit, "Host::refreshHostInfo");
    const std::list<std::string> args = {"--host", agent_.name(), "--exec", "vessa.shed.env", "--no-lm"};
    VESSA_LOG << "Executing vessa.shed.env on " << agent_.name();
    std::string output;
    if (quickExec("pelo", args, output) != 0) {
        VESSA_LOG << "Execution failed";
        return;
    }
    parseHostInfo(output);
}

void Host::parseHostInfo(const std::string& output) {
    // No trace of its own: the lines read as refreshHostInfo's, as they always have.
    const char* const trace = "Host::refreshHostInfo";
    VESSA_LOG_AT(kUnit, trace) << "Parsing output";
    std::string* const members[] = {&toolsVersion_, &installDir_, &buildOs_, &buildCpu_, &osName_,
                                    &osVersion_,    &osBits_,     &cpuName_, &cpuCount_};
    static const char* const keys[] = {"vltt.version", "vltt.installdir", "build.os", "build.cpu", "os.name",
                                       "os.version",   "os.bits",         "cpu.name", "cpu.count"};
    license_ = LicenseInfo();
    void (LicenseInfo::*const licenseSetters[])(const std::string&) = {
        &LicenseInfo::setProvider, &LicenseInfo::setServer, &LicenseInfo::setPort, &LicenseInfo::setExpiry,
        &LicenseInfo::setFeature};
    std::istringstream in(output);
    for (std::string line; std::getline(in, line);) {
        const std::string::size_type eq = line.find('=');
        const std::string key = line.substr(0, eq);
        const std::string value = eq == std::string::npos ? "" : line.substr(eq + 1);
        VESSA_LOG_AT(kUnit, trace) << "Setting " << key << " = " << value;
        for (std::size_t k = 0; k < 9; ++k) {
            if (key == keys[k]) {
                *members[k] = util::str::trim(value);
                break;
            }
        }
        for (std::size_t k = 0; k < 5; ++k) {
            if (key == kLicenseKeys[k]) {
                (license_.*licenseSetters[k])(util::str::trim(value));
            }
        }
    }
    VESSA_LOG_AT(kUnit, trace) << "Finished parsing output.";
}

void Host::updateLicenseInfo(const LicenseInfo& info) {
    VESSA_TRACE(kUnit, "Host::updateLicenseInfo");
    const std::string values[] = {info.provider(), info.server(), info.port(), info.expiry(), info.feature()};
    std::list<std::string> args = {"--host", agent_.name(), "--exec", "vessa.shed.env", "--set"};
    for (std::size_t k = 0; k < 5; ++k) {
        if (values[k].find_first_of("\r\n") != std::string::npos) {
            throw Exception(std::string("the licence value of ") + kLicenseKeys[k] + " holds a line end",
                            sal::err::kConversion);
        }
        args.push_back(std::string(kLicenseKeys[k]) + "=" + values[k]);
    }
    VESSA_LOG << "Executing vessa.shed.env --set on " << agent_.name();
    std::string output;
    std::string why;
    const int status = quickExec("pelo", args, output, &why);
    if (status != 0) {
        throw Exception("cannot change the licence information on " + agent_.name() + ": " +
                        (!why.empty() ? why
                         : status < 0 ? std::string("the launcher pelo could not be run")
                                      : "vessa.shed.env --set ended with status " + std::to_string(status)));
    }
    refreshHostInfo();
}

}  // namespace vessa::target
