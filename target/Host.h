// One target host as the controller sees it: its agent identity, its description (read from the
// suite's environment tool at construction), the storage items found on it, and the means to run
// programs there.
//
// Ownership: a Host owns the Storage items of its storage list and deletes them when destroyed. A copy
// (or an assignment) shares those items with its source as plain pointers: only one of the two may be
// destroyed while holding them, so code that copies a Host with storage clears one side's list first.
//
// Threads: a Host is not locked. queryDevices() fills the storage list on a worker thread; the caller
// waits for that thread before it touches the host again.
#pragma once

#include <iosfwd>
#include <list>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <utility>

#include "platform/Export.h"
#include "platform/Pipe.h"
#include "platform/Process.h"
#include "platform/Thread.h"
#include "platform/hax/Hax.h"
#include "target/DiscoveryReport.h"
#include "target/Identity.h"
#include "target/LicenseInfo.h"
#include "target/Property.h"
#include "target/Storage.h"
#include "target/Verdict.h"

namespace vessa::target {

class VESSA_API Host {
  public:
    // Progress: a percentage and a message; null means no reports.
    typedef void (*callback)(int, std::string);
    typedef std::pair<Storage::storageType, std::list<std::string>> Request;
    // Local discovery, registered by the Linux discovery unit: appends the local machine's storage to
    // the host's list and returns the list's size.
    // Reports progress through the callback when one is given.
    typedef unsigned int (*LocalDiscovery)(Host* host, Storage::storageType type,
                                           const std::list<std::string>& arguments, callback progress);

    // Copies the handle and asks the host for its description at once (refreshHostInfo).
    explicit Host(const vessa::hax::Host& agentHost);
    Host(const Host& other);
    Host& operator=(const Host& other);
    ~Host();

    // A new heap Host for the agent host of that name; the caller owns it.
    static Host* named(const std::string& name, bool flag);
    static Host fromCache(const std::string& name);
    // Appends a new heap Host for every host the agent knows; returns hostList's size.
    static int fill(std::list<Host*>& hostList);
    static bool exists(const std::string& name);

    const std::string& id() const { return agent_.id(); }
    const std::string& name() const { return agent_.name(); }
    const sal::io::AINETAddress& address() const { return agent_.address(); }
    const std::vector<std::string>& addressList() const { return agent_.addressList(); }
    const std::string& toolsVersion() const { return toolsVersion_; }
    const std::string& installDir() const { return installDir_; }
    const std::string& buildOs() const { return buildOs_; }
    const std::string& buildCpu() const { return buildCpu_; }
    const std::string& osName() const { return osName_; }
    const std::string& osVersion() const { return osVersion_; }
    const std::string& osBits() const { return osBits_; }
    const std::string& cpuName() const { return cpuName_; }
    const std::string& cpuCount() const { return cpuCount_; }
    const LicenseInfo& licenseInfo() const { return license_; }
    std::list<Storage*>& storage() { return storage_; }
    const std::list<Storage*>& storage() const { return storage_; }
    // What the last local discovery of this host could not see (set by that run; empty before any, and
    // for hosts queried through the listing tool, which reports nothing of the kind).
    const DiscoveryReport& discoveryReport() const { return discoveryReport_; }
    void setDiscoveryReport(DiscoveryReport report) { discoveryReport_ = std::move(report); }
    // Whether `item` (an item of this host's list) may be destroyed by testing, and why not
    // (target/Verdict.h). A local discovery run decides it for every item it makes, whatever the
    // options of fill(); so does a remote query given the option "--verdicts", whose listing tool then
    // sends the verdicts of the host's own run (target/VerdictListing.h). Any other item of a remote
    // listing is unknown, since the listing alone does not say what is in use or holds data.
    Verdict verdict(const Storage& item) const;
    // Whether the items of the last remote query carry the host's own verdicts; the discovery report
    // then holds the warnings of the host's run.
    bool verdictsFromHost() const { return verdictsFromHost_; }
    // Set by the local discovery for each item it makes.
    void setVerdict(const Storage* item, Verdict verdict);
    // Who the device of `item` is (target/Identity.h): set by a local discovery run asked for it
    // ("--identity"); every field unknown otherwise, and for items of a remote listing.
    Identity identity(const Storage& item) const;
    void setIdentity(const Storage* item, Identity identity);

    // Forwards to the agent host.
    std::string envValueOf(const std::string& name) const { return agent_.envValueOf(name); }
    void putFSItem(const std::string& local, const std::string& remote) { agent_.putFSItem(local, remote); }
    void getFSItem(const std::string& remote, const std::string& local) { agent_.getFSItem(remote, local); }
    void deleteFSItem(const std::string& path) { agent_.deleteFSItem(path); }
    int fill(std::list<vessa::hax::Process>& processes) { return agent_.fill(processes); }
    void quitAllProcesses() { agent_.quitAllProcesses(); }
    void killAllProcesses() { agent_.killAllProcesses(); }
    // Lists a directory of the host; never throws (0 on any agent error).
    int fill(const std::string& directory, std::list<vessa::hax::FSItem>& items);
    // Whether `path` names an item of that type (0: any) on the host; names compare case-insensitively.
    bool existsFSItem(const std::string& path, vessa::hax::FSItem::typecode type);

    int getExtendedInfo(std::list<Property>& info) const;
    static void setLoggingStream(std::ostream& stream);
    // Bounds every program that the library runs to its end (the discovery tools, "file", the launcher):
    // one that has not ended after `seconds` (0: no bound; default 120) is ended together with what
    // it started and counts as a program that failed.
    static void setCommandTimeout(unsigned int seconds);
    // Reads the description, and the licence information, through the launcher and the environment
    // tool. A run that fails is logged only; the description stays as it was.
    void refreshHostInfo();
    // The parsing half of refreshHostInfo: sets the description from the environment tool's output,
    // lines of a key, "=" and a value (see refreshHostInfo); keys it does not know are ignored and
    // members whose key is absent keep their value. Logs as refreshHostInfo does. The licence keys
    // (target/LicenseFile.h) fill licenseInfo(); the licence is what the output says, so a key that
    // is absent leaves its field empty.
    void parseHostInfo(const std::string& output);
    // Sets the host's licence information to `info` (an empty field removes its key) through the
    // launcher and the environment tool ("vessa.shed.env --set key=value ..."), which keeps it in the
    // package's configuration directory, then reads the description back (refreshHostInfo). Throws
    // vessa::Exception naming the host when the tool could not change it (a field holding a line end,
    // a host that cannot be reached, a file that cannot be written).
    void updateLicenseInfo(const LicenseInfo& info);

    // Programs: a local process (optionally in an xterm), or a command run on this host through the
    // launcher. Errors of the platform reach the caller.
    sal::exec::Process exec(const std::string& title, const std::string& program,
                            std::list<std::string>& args, const std::string& workdir, bool flag,
                            const std::map<std::string, std::string>& env, bool inXterm, bool iconic);
    sal::exec::Process exec(std::list<std::string>& command, const std::string& workdir, bool inXterm,
                            bool iconic, bool createWorkdir, const std::map<std::string, std::string>& env);
    // Copies a channel to standard output, chunk by chunk, each chunk followed by an end of line.
    int ReadOutput(sal::xio::Channel& channel);

    // Storage queries. fill() runs the local discovery for the local machine, else the listing tool
    // through the launcher; it returns the size of the storage list afterwards.
    int fill(Storage::storageType type, callback cb, bool flag, const std::list<std::string>& options);
    void QueryDrives(callback& cb, const Request& request);
    // What failed in the last remote query, which reports a failed run of its listing tool only in the
    // log: "" when the tool ran to a successful end (and always for this machine).
    const std::string& lastQueryFailure() const { return queryFailure_; }
    // A remote host asked in one session of the agent's transport (hax::Host::run): the description
    // that named() reads, then the listing that fill(type, ..., options) reads, where those cost three
    // sessions (the environment tool, the install directory, the listing tool). For a caller that talks
    // to each host once, such as a fleet. `host` is set as soon as the description is read, so that a
    // listing cut short keeps its items there. False, with `host` untouched, when the host is this
    // machine or the transport cannot run programs: ask through named() and fill() then. Throws
    // vessa::Exception naming the host when the session could not be had; a listing tool that failed is
    // lastQueryFailure(), as after fill().
    static bool askOnce(const std::string& name, Storage::storageType type,
                        const std::list<std::string>& options, std::unique_ptr<Host>& host);
    void ThreadDrives(Request& request);
    sal::exec::Thread queryDevices(Storage::storageType type, const std::list<std::string>& options);

    // The XML report: "<name>.xml" in the current directory, querying every kind first when the
    // storage list is empty and cachedOnly is false.
    void printStorage(bool cachedOnly);
    // The same document written to `os` (no query is made).
    void printStorage(std::ostream& os);
    void printStorageTableSchemas(std::ostream& os);
    static bool sortStorage(Storage* a, Storage* b);

    // Parses a version-136 listing (positioned after its version line) into storage items. A listing is
    // bounded far above any real host (kListingItems lines, kListingLineBytes bytes a line), so that a
    // hostile or broken one cannot make the controller hold without end: a listing of more lines is
    // refused before any item is made, and a longer line ends the parse there (the items before it
    // stay); either way with a ListingLineError that names the line and the bound.
    static constexpr std::size_t kListingItems = 1000000;
    static constexpr std::size_t kListingLineBytes = 65536;
    void parseOldKorvoListing(std::istringstream& listing, const Storage::storageType& type, callback& cb);

    // The Linux discovery registers itself here when the library is loaded; the facade itself does not
    // depend on it. Without a registered discovery the local branch of fill() adds nothing.
    static void setLocalDiscovery(LocalDiscovery discovery);

  private:
    struct Unread {};
    // A Host whose description is not read (askOnce reads it itself).
    Host(const vessa::hax::Host& agentHost, Unread) : agent_(agentHost) {}
    // The reading half of QueryDrives: the listing tool's output (`output` is used up), with the
    // verdicts behind it when the request asked for them.
    void readListing(std::string& output, callback& cb, const Request& request);
    // The quick execution: runs `program` locally to its end through the system view and captures its
    // standard output; the exit status, or -1 when it could not be run or was ended by the command
    // limits (`why`, when given, then says which).
    int quickExec(const std::string& program, const std::list<std::string>& args, std::string& output,
                  std::string* why = nullptr);
    void releaseStorage();

    vessa::hax::Host agent_;
    LicenseInfo license_;
    std::string toolsVersion_;
    std::string installDir_;
    std::string buildOs_;
    std::string buildCpu_;
    std::string osName_;
    std::string osVersion_;
    std::string osBits_;
    std::string cpuName_;
    std::string cpuCount_;
    std::list<Property> extendedInfo_;
    std::string queryFailure_;
    bool verdictsFromHost_ = false;
    std::list<Storage*> storage_;
    DiscoveryReport discoveryReport_;
    std::map<const Storage*, Verdict> verdicts_;
    std::map<const Storage*, Identity> identities_;
};

}  // namespace vessa::target
