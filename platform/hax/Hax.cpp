#include "platform/hax/Hax.h"

#include <signal.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <mutex>

#include "platform/Exception.h"
#include "platform/Process.h"
#include "platform/Str.h"
#include "platform/view/SystemView.h"

namespace vessa::hax {

namespace {

constexpr const char* kLocalIdentity = "127.0.0.1";

}  // namespace

struct Host::Impl {
    std::string id;
    std::string name;
    sal::io::AINETAddress address;
    std::vector<std::string> addressList;
    bool local = false;
    mutable std::mutex processMutex;
    mutable std::vector<sal::exec::Process> processes;
    mutable std::vector<Process> records;
};

namespace {

// The agent client's table of named hosts and the transport to remote ones.
struct Registry {
    std::mutex mutex;
    std::vector<std::pair<std::string, std::shared_ptr<Host::Impl>>> hosts;  // lower-cased name -> host
    std::shared_ptr<Transport> transport;
    std::string sshConfig;
};

Registry& registry() {
    static Registry r;
    return r;
}

bool namesThisMachine(const std::string& lowered) {
    if (lowered == "127.0.0.1" || lowered == "localhost" || lowered == "::1") {
        return true;
    }
    if (lowered == util::str::toLower(sal::sys::current().hostName())) {
        return true;
    }
    for (const std::string& a : sal::io::AINETAddress::interfaceAddresses()) {
        if (lowered == util::str::toLower(a)) {
            return true;
        }
    }
    return false;
}

std::shared_ptr<Transport> transportFor(const std::string& host, const char* operation) {
    std::lock_guard<std::mutex> lock(registry().mutex);
    if (!registry().transport) {
        throw Exception(std::string("no agent transport to reach host ") + host + " for " + operation,
                        sal::err::kUnsupported);
    }
    return registry().transport;
}

}  // namespace

FSItem::typecode FSItem::of(sal::sys::DirEntry::Type t) {
    switch (t) {
        case sal::sys::DirEntry::File:
            return FSItem::file;
        case sal::sys::DirEntry::Directory:
            return FSItem::directory;
        case sal::sys::DirEntry::Link:
            return FSItem::link;
        case sal::sys::DirEntry::BlockDevice:
        case sal::sys::DirEntry::CharDevice:
            return FSItem::device;
        default:
            return FSItem::other;
    }
}

Transport::~Transport() = default;

int Transport::startProcess(const std::string& address, const std::string&, const std::list<std::string>&) {
    throw Exception("the agent transport cannot start processes on " + address, sal::err::kUnsupported);
}

std::vector<int> Transport::runningProcesses(const std::string& address, const std::vector<int>&) {
    throw Exception("the agent transport cannot list processes on " + address, sal::err::kUnsupported);
}

void Transport::signalProcesses(const std::string& address, const std::vector<int>&, int) {
    throw Exception("the agent transport cannot end processes on " + address, sal::err::kUnsupported);
}

int Transport::run(const std::string& address, const std::string&, bool, const std::string&,
                   const std::list<std::string>&, const Sink&, const Sink&, const sal::exec::RunLimits&,
                   const std::string&) {
    throw Exception("the agent transport cannot run programs on " + address, sal::err::kUnsupported);
}

void setSshConfig(const std::string& path) {
    {
        std::lock_guard<std::mutex> lock(registry().mutex);
        registry().sshConfig = path;
    }
    sal::sys::setCommandVariable("VESSA_SSH_CONFIG", path);
}

std::string sshConfig() {
    {
        std::lock_guard<std::mutex> lock(registry().mutex);
        if (!registry().sshConfig.empty()) {
            return registry().sshConfig;
        }
    }
    const char* value = std::getenv("VESSA_SSH_CONFIG");
    return value == nullptr ? "" : value;
}

void setTransport(std::shared_ptr<Transport> transport) {
    std::lock_guard<std::mutex> lock(registry().mutex);
    registry().transport = std::move(transport);
}

void clearHostCache() {
    std::lock_guard<std::mutex> lock(registry().mutex);
    registry().hosts.clear();
}

Host::Host() = default;

Host Host::named(const std::string& name, bool mustAnswer) {
    const std::string key = util::str::toLower(name);
    {
        std::lock_guard<std::mutex> lock(registry().mutex);
        for (const auto& [n, impl] : registry().hosts) {
            if (n == key) {
                if (mustAnswer && !impl->local && !registry().transport) {
                    break;
                }
                return Host(impl);
            }
        }
    }
    auto impl = std::make_shared<Impl>();
    impl->name = name;
    if (namesThisMachine(key)) {
        impl->local = true;
        impl->id = kLocalIdentity;
        impl->address = sal::io::AINETAddress(kLocalIdentity);
        impl->addressList = sal::io::AINETAddress::interfaceAddresses();
    } else {
        impl->address = sal::io::AINETAddress::resolve(name);
        impl->id = impl->address.text();
        impl->addressList = {impl->address.text()};
        if (mustAnswer) {
            transportFor(name, "naming");
        }
    }
    std::lock_guard<std::mutex> lock(registry().mutex);
    for (const auto& [n, existing] : registry().hosts) {
        if (n == key) {
            return Host(existing);
        }
    }
    registry().hosts.emplace_back(key, impl);
    return Host(impl);
}

Host Host::fromCache(const std::string& name) {
    const std::string key = util::str::toLower(name);
    std::lock_guard<std::mutex> lock(registry().mutex);
    for (const auto& [n, impl] : registry().hosts) {
        if (n == key) {
            return Host(impl);
        }
    }
    throw Exception("host " + name + " is not in the agent's cache", sal::err::kNotFound);
}

int Host::fill(std::list<Host>& hosts) {
    std::lock_guard<std::mutex> lock(registry().mutex);
    for (const auto& entry : registry().hosts) {
        hosts.push_back(Host(entry.second));
    }
    return static_cast<int>(registry().hosts.size());
}

const Host::Impl& Host::impl() const {
    if (!impl_) {
        throw Exception("agent host handle holds no host", sal::err::kNullHandle);
    }
    return *impl_;
}

const std::string& Host::id() const {
    return impl().id;
}
const std::string& Host::name() const {
    return impl().name;
}
const sal::io::AINETAddress& Host::address() const {
    return impl().address;
}
const std::vector<std::string>& Host::addressList() const {
    return impl().addressList;
}
bool Host::isLocal() const {
    return impl().local;
}

std::string Host::envValueOf(const std::string& name) const {
    if (impl().local) {
        const char* value = std::getenv(name.c_str());
        return value == nullptr ? "" : value;
    }
    return transportFor(impl().name, "reading an environment value")->envValueOf(impl().name, name);
}

int Host::run(const std::string& workdir, bool createWorkdir, const std::string& program,
              const std::list<std::string>& args, const Transport::Sink& output, const Transport::Sink& error,
              const sal::exec::RunLimits& limits, const std::string& label) const {
    if (impl().local) {
        throw Exception("programs of this machine are not run through the agent", sal::err::kUnsupported);
    }
    return transportFor(impl().name, "running a program")
        ->run(impl().name, workdir, createWorkdir, program, args, output, error, limits, label);
}

int Host::fill(const std::string& directory, std::list<FSItem>& items) const {
    if (!impl().local) {
        return transportFor(impl().name, "listing a directory")->listDirectory(impl().name, directory, items);
    }
    std::vector<sal::sys::DirEntry> entries;
    if (!sal::sys::current().listDirectory(directory, entries)) {
        throw Exception("cannot list directory " + directory + " on " + impl().name, sal::err::kNotFound);
    }
    for (const sal::sys::DirEntry& e : entries) {
        items.emplace_back(e.name, FSItem::of(e.type));
    }
    return static_cast<int>(entries.size());
}

void Host::putFSItem(const std::string& local, const std::string& remote) const {
    if (!impl().local) {
        transportFor(impl().name, "putting a file")->putFSItem(impl().name, local, remote);
        return;
    }
    std::error_code ec;
    std::filesystem::copy_file(local, remote, std::filesystem::copy_options::overwrite_existing, ec);
    if (ec) {
        throw SystemException("cannot copy " + local + " to " + remote, ec.value());
    }
}

void Host::getFSItem(const std::string& remote, const std::string& local) const {
    if (!impl().local) {
        transportFor(impl().name, "getting a file")->getFSItem(impl().name, remote, local);
        return;
    }
    putFSItem(remote, local);
}

void Host::deleteFSItem(const std::string& path) const {
    if (!impl().local) {
        transportFor(impl().name, "deleting a file")->deleteFSItem(impl().name, path);
        return;
    }
    std::error_code ec;
    std::filesystem::remove_all(path, ec);
    if (ec) {
        throw SystemException("cannot delete " + path, ec.value());
    }
}

Process Host::launch(const std::string& program, const std::list<std::string>& args) const {
    if (!impl().local) {
        const int pid =
            transportFor(impl().name, "starting a process")->startProcess(impl().name, program, args);
        std::lock_guard<std::mutex> lock(impl().processMutex);
        impl().records.emplace_back(pid, program);
        return impl().records.back();
    }
    sal::exec::Process p = sal::exec::Process::create(program, args, sal::exec::LaunchProperty());
    std::lock_guard<std::mutex> lock(impl().processMutex);
    impl().processes.push_back(p);
    impl().records.emplace_back(static_cast<int>(p.pid()), program);
    return impl().records.back();
}

namespace {

std::vector<int> pidsOf(const std::vector<Process>& records) {
    std::vector<int> pids;
    for (const Process& r : records) {
        pids.push_back(r.pid());
    }
    return pids;
}

}  // namespace

int Host::fill(std::list<Process>& processes) const {
    std::lock_guard<std::mutex> lock(impl().processMutex);
    if (!impl().local && !impl().records.empty()) {
        // Only the processes that still run on the host are reported (and remembered).
        const std::vector<int> alive = transportFor(impl().name, "listing processes")
                                           ->runningProcesses(impl().name, pidsOf(impl().records));
        std::vector<Process> kept;
        for (const Process& r : impl().records) {
            if (std::find(alive.begin(), alive.end(), r.pid()) != alive.end()) {
                kept.push_back(r);
            }
        }
        impl().records.swap(kept);
    }
    processes.insert(processes.end(), impl().records.begin(), impl().records.end());
    return static_cast<int>(impl().records.size());
}

namespace {

void endAll(std::mutex& m, std::vector<sal::exec::Process>& procs, std::vector<Process>& records,
            int signal) {
    std::lock_guard<std::mutex> lock(m);
    for (sal::exec::Process& p : procs) {
        ::kill(p.pid(), signal);
        p.wait();
    }
    procs.clear();
    records.clear();
}

// A remote host's processes are signalled there; they are forgotten whether or not they still ran.
void endRemote(const Host::Impl& impl, int signal) {
    std::lock_guard<std::mutex> lock(impl.processMutex);
    if (impl.records.empty()) {
        return;
    }
    transportFor(impl.name, "ending processes")->signalProcesses(impl.name, pidsOf(impl.records), signal);
    impl.records.clear();
}

}  // namespace

void Host::quitAllProcesses() const {
    if (!impl().local) {
        endRemote(impl(), SIGTERM);
        return;
    }
    endAll(impl().processMutex, impl().processes, impl().records, SIGTERM);
}

void Host::killAllProcesses() const {
    if (!impl().local) {
        endRemote(impl(), SIGKILL);
        return;
    }
    endAll(impl().processMutex, impl().processes, impl().records, SIGKILL);
}

}  // namespace vessa::hax
