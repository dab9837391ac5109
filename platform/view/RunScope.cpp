#include "platform/view/RunScope.h"

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string_view>
#include <system_error>
#include <thread>
#include <unordered_map>
#include <unordered_set>

#include "platform/Str.h"

namespace vessa::sal::sys {

namespace detail {
extern thread_local View* t_scopeView;
}

namespace {

// One directory as listed once: its entries in the view's order. Long listings are searched through
// the positions of their entries in name order, exact or lower-cased (each made when first needed):
// four bytes an entry, where a table of names would copy every name.
struct Listing {
    bool listed = false;
    std::vector<DirEntry> entries;
    std::vector<std::uint32_t> byLoweredName;  // by the name as util::str::toLower lowers it
    std::vector<std::uint32_t> byName;
};

char lowered(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

// Orders as the lowered names would: ASCII letters only, as util::str::toLower lowers.
bool lessLowered(std::string_view a, std::string_view b) {
    return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end(),
                                        [](char x, char y) { return lowered(x) < lowered(y); });
}

std::vector<std::uint32_t> positions(const std::vector<DirEntry>& entries,
                                     bool (*less)(std::string_view, std::string_view)) {
    std::vector<std::uint32_t> order(entries.size());
    for (std::uint32_t i = 0; i < order.size(); ++i) {
        order[i] = i;
    }
    std::stable_sort(order.begin(), order.end(), [&](std::uint32_t a, std::uint32_t b) {
        return less(entries[a].name, entries[b].name);
    });
    return order;
}

bool lessExact(std::string_view a, std::string_view b) {
    return a < b;
}

// The entries whose name is `name` by `less`, as positions in the listing.
std::pair<std::vector<std::uint32_t>::const_iterator, std::vector<std::uint32_t>::const_iterator> named(
    const Listing& l, const std::vector<std::uint32_t>& order, std::string_view name,
    bool (*less)(std::string_view, std::string_view)) {
    const auto from =
        std::lower_bound(order.begin(), order.end(), name,
                         [&](std::uint32_t at, std::string_view n) { return less(l.entries[at].name, n); });
    const auto to = std::upper_bound(from, order.end(), name, [&](std::string_view n, std::uint32_t at) {
        return less(n, l.entries[at].name);
    });
    return {from, to};
}

// What a second thread read for the run ahead of it: the same items below each of a list of
// directories. Each item is taken once, by whichever thread claims it first: the second thread to read
// it, or the run's thread to do its own reading.
class ReadAhead {
  public:
    static constexpr std::size_t kThreads = 4;
    // The reading threads give way to the run's own thread: on a machine with fewer processors than
    // threads, equal shares left the run, which everything waits for, with a fraction of a processor.
    static constexpr int kNice = 5;
    // The reading stays at most this many directories ahead of the run: what it read and the run has
    // not taken yet is all it holds, however many devices the host has.
    static constexpr std::size_t kWindow = 256;
    // Links are read with the length bound that the view takes when none is given.
    static constexpr std::size_t kLinkLimit = 512;

    ReadAhead(View& view, std::vector<std::string> bases, std::vector<RunScope::Ahead> within)
        : view_(view), bases_(std::move(bases)), within_(std::move(within)) {
        slots_ = std::make_unique<Slot[]>(bases_.size() * within_.size());
        index_.reserve(bases_.size());
        for (std::size_t i = 0; i < bases_.size(); ++i) {
            index_.emplace(bases_[i], i);  // a directory named twice is read once, for its first place
        }
        for (std::size_t first = 0; first < kThreads; ++first) {
            try {
                workers_.emplace_back([this, first] { work(first); });
            } catch (const std::system_error&) {
                break;  // no more threads (a process limit): the run reads the rest itself, as it comes to it
            }
        }
    }
    ~ReadAhead() {
        stop_.store(true, std::memory_order_relaxed);
        for (std::thread& w : workers_) {
            w.join();
        }
    }
    ReadAhead(const ReadAhead&) = delete;
    ReadAhead& operator=(const ReadAhead&) = delete;

    // The content of `path` if the second thread read it; false when the caller must read it itself.
    bool takeFile(const std::string& path, bool& read, std::string& content) {
        Slot* slot = claim(RunScope::Ahead::File, path);
        if (slot == nullptr) {
            return false;
        }
        read = slot->read->ok;
        if (read) {
            content = std::move(slot->read->content);
        }
        slot->read.reset();
        return true;
    }
    bool takeDirectory(const std::string& path, bool& listed, std::vector<DirEntry>& entries) {
        Slot* slot = claim(RunScope::Ahead::Directory, path);
        const bool links = slot == nullptr;
        if (links) {
            slot = claim(RunScope::Ahead::Links, path);
        }
        if (slot == nullptr) {
            return false;
        }
        listed = slot->read->ok;
        entries = std::move(slot->read->entries);
        if (!links) {
            slot->read.reset();  // a directory's links are asked for after its listing: they stay
        }
        return true;
    }
    // The target of the link `path` if it lies in a directory whose links were read ahead. A link is
    // asked for after its directory's listing, which has waited for the reading.
    bool takeLink(const std::string& path, bool& read, std::string& target) {
        const std::string::size_type slash = path.rfind('/');
        if (slash == std::string::npos) {
            return false;
        }
        for (const std::string::size_type end : {slash + 1, slash}) {
            const Slot* slot = find(RunScope::Ahead::Links, path.substr(0, end));
            if (slot != nullptr && slot->state.load(std::memory_order_acquire) == Taken && slot->read &&
                slot->read->linksRead) {
                auto it = slot->read->targets.find(path.substr(slash + 1));
                read = it != slot->read->targets.end();
                if (read) {
                    target = it->second;
                }
                return true;
            }
        }
        return false;
    }

  private:
    enum State : int { Open, Reading, Done, Taken };
    // What was read for one item; made when it is read and let go when the run takes it.
    struct Read {
        bool ok = false;
        std::string content;
        std::vector<DirEntry> entries;
        bool linksRead = false;                                // Links: the targets below are complete
        std::unordered_map<std::string, std::string> targets;  // Links: by name, the links read
    };
    // One per item and directory, for every device of the host: kept small.
    struct Slot {
        std::atomic<int> state{Open};
        std::unique_ptr<Read> read;  // set before the state is Done
    };

    Slot* find(RunScope::Ahead::Kind kind, const std::string& path) {
        for (std::size_t i = 0; i < within_.size(); ++i) {
            const std::string& tail = within_[i].path;
            if (within_[i].kind == kind && path.size() > tail.size() &&
                path.compare(path.size() - tail.size(), tail.size(), tail) == 0) {
                auto base = index_.find(std::string_view(path).substr(0, path.size() - tail.size()));
                if (base != index_.end()) {
                    return &slots_[base->second * within_.size() + i];
                }
            }
        }
        return nullptr;
    }

    Slot* claim(RunScope::Ahead::Kind kind, const std::string& path) {
        Slot* found = find(kind, path);
        if (found == nullptr) {
            return nullptr;
        }
        Slot& slot = *found;
        const std::size_t base = static_cast<std::size_t>(found - slots_.get()) / within_.size();
        std::size_t reached = reached_.load(std::memory_order_relaxed);
        while (base >= reached &&
               !reached_.compare_exchange_weak(reached, base + 1, std::memory_order_relaxed)) {
        }
        int state = Open;
        if (slot.state.compare_exchange_strong(state, Taken, std::memory_order_acq_rel)) {
            return nullptr;  // not reached yet: the caller reads it, and the second thread passes it by
        }
        if (state == Reading) {
            state = waitWhileReading(slot);
        }
        if (state != Done) {
            return nullptr;  // taken before
        }
        slot.state.store(Taken, std::memory_order_relaxed);
        return &slot;
    }

    // The slot's state once a reading thread has finished it. The run's thread sleeps meanwhile: on a
    // machine with fewer processors than threads, a yielding thread kept taking the processor from the
    // very thread it waited for.
    int waitWhileReading(Slot& slot) {
        std::unique_lock<std::mutex> lock(finishedLock_);
        waiting_.fetch_add(1);
        int state = slot.state.load();
        while (state == Reading) {
            finished_.wait_for(lock, std::chrono::milliseconds(10));
            state = slot.state.load();
        }
        waiting_.fetch_sub(1);
        return state;
    }
    void finish(Slot& slot) {
        slot.state.store(Done);
        if (waiting_.load() != 0) {
            const std::lock_guard<std::mutex> lock(finishedLock_);
            finished_.notify_all();
        }
    }

    // Takes every kThreads-th directory from `first` on.
    void work(std::size_t first) {
        ::setpriority(PRIO_PROCESS, static_cast<id_t>(::gettid()), kNice);  // a refusal changes nothing
        // The entries of the directories this thread listed, by name: a file that its directory lists
        // as regular is read the shorter way, and one that it does not list is not tried, as the run's
        // own reads do.
        std::unordered_map<std::string, std::unordered_map<std::string, DirEntry::Type>> listed;
        for (std::size_t b = first; b < bases_.size(); b += kThreads) {
            while (b >= reached_.load(std::memory_order_relaxed) + kWindow) {
                if (stop_.load(std::memory_order_relaxed)) {
                    return;
                }
                std::this_thread::sleep_for(std::chrono::microseconds(200));
            }
            listed.clear();  // only the items below one directory look at each other's listings
            std::size_t at = b * within_.size();
            for (const RunScope::Ahead& item : within_) {
                Slot& slot = slots_[at++];
                int state = Open;
                if (stop_.load(std::memory_order_relaxed)) {
                    return;
                }
                if (!slot.state.compare_exchange_strong(state, Reading, std::memory_order_acq_rel)) {
                    continue;
                }
                slot.read = std::make_unique<Read>();
                read(bases_[b] + item.path, item.kind, listed, *slot.read);
                finish(slot);
            }
        }
    }

    void read(const std::string& path, RunScope::Ahead::Kind kind,
              std::unordered_map<std::string, std::unordered_map<std::string, DirEntry::Type>>& listed,
              Read& slot) {
        if (kind == RunScope::Ahead::Links) {
            slot.ok = view_.listDirectory(path, slot.entries);
            const std::string dir = path.empty() || path.back() == '/' ? path : path + "/";
            for (const DirEntry& e : slot.entries) {
                std::string target;
                if (view_.readLink(dir + e.name, target, kLinkLimit)) {
                    slot.targets.emplace(e.name, std::move(target));
                }
            }
            slot.linksRead = true;
            return;
        }
        if (kind == RunScope::Ahead::Directory) {
            slot.ok = !absent(path, listed) && view_.listDirectory(path, slot.entries);
            if (slot.ok) {
                auto& names = listed[path];
                for (const DirEntry& e : slot.entries) {
                    names.emplace(e.name, e.type);
                }
            }
            return;
        }
        const std::string::size_type slash = path.rfind('/');
        auto dir = slash == std::string::npos ? listed.end() : listed.find(path.substr(0, slash));
        if (dir == listed.end()) {
            slot.ok = !absent(path.substr(0, slash), listed) && view_.readFile(path, slot.content);
            return;
        }
        auto entry = dir->second.find(path.substr(slash + 1));
        slot.ok = entry != dir->second.end() &&
                  (entry->second == DirEntry::File ? view_.readListedFile(path, slot.content)
                                                   : view_.readFile(path, slot.content));
    }

    // Whether the listing of `path`'s directory, made by this thread, shows that `path` is not there
    // (a device mapper node has no device directory, nor anything in it): no need to try.
    static bool absent(
        const std::string& path,
        const std::unordered_map<std::string, std::unordered_map<std::string, DirEntry::Type>>& listed) {
        const std::string::size_type slash = path.rfind('/');
        auto dir = slash == std::string::npos ? listed.end() : listed.find(path.substr(0, slash));
        return dir != listed.end() && dir->second.count(path.substr(slash + 1)) == 0;
    }

    View& view_;
    const std::vector<std::string> bases_;
    const std::vector<RunScope::Ahead> within_;
    std::unique_ptr<Slot[]> slots_;                            // within_.size() for each base, in order
    std::unordered_map<std::string_view, std::size_t> index_;  // into bases_
    std::atomic<std::size_t> reached_{0};  // one past the last directory the run took an item of
    std::atomic<bool> stop_{false};
    std::mutex finishedLock_;  // with finished_: the run's thread waits for a slot being read
    std::condition_variable finished_;
    std::atomic<int> waiting_{0};
    std::vector<std::thread> workers_;
};

}  // namespace

class RunScope::CachingView : public View {
  public:
    explicit CachingView(View& inner) : inner_(inner) { inner_.runStarts(); }
    ~CachingView() override {
        for (auto& c : commandsAhead_) {
            if (c->thread.joinable()) {
                c->thread.join();
            }
        }
        ahead_.clear();
        inner_.runEnds();
    }
    CachingView(const CachingView&) = delete;
    CachingView& operator=(const CachingView&) = delete;

    const std::string& root() const override { return inner_.root(); }

    bool readFile(const std::string& path, std::string& content) override {
        bool read = false;
        for (const auto& ahead : ahead_) {
            if (ahead->takeFile(path, read, content)) {
                noteRead(path, read);
                return read;
            }
        }
        switch (known(path)) {
            case Known::Absent:
                break;  // a listing of the run shows it is not there: no need to try
            case Known::Regular:
                read = inner_.readListedFile(path, content);
                break;
            case Known::Unknown:
                read = inner_.readFile(path, content);
                break;
        }
        noteRead(path, read);
        return read;
    }

    void startReadAhead(std::vector<std::string> bases, std::vector<Ahead> within) {
        if (inner_.allowsConcurrentReads() && !bases.empty() && !within.empty()) {
            ahead_.push_back(std::make_unique<ReadAhead>(inner_, std::move(bases), std::move(within)));
        }
    }

    void endReading() {
        ahead_.clear();
        std::unordered_map<std::string, Listing>().swap(listings_);
    }

    bool listDirectory(const std::string& path, std::vector<DirEntry>& entries) override {
        const Listing& l = listing(path);
        entries.insert(entries.end(), l.entries.begin(), l.entries.end());
        return l.listed;
    }

    bool entryTypes(const std::string& directory, const std::string& loweredName,
                    std::vector<DirEntry::Type>& types) override {
        Listing& l = listing(directory);
        if (l.entries.size() < kIndexFrom) {
            for (const DirEntry& e : l.entries) {
                if (equalLowered(e.name, loweredName)) {
                    types.push_back(e.type);
                }
            }
            return l.listed;
        }
        if (l.byLoweredName.empty()) {
            l.byLoweredName = positions(l.entries, lessLowered);
        }
        const auto [from, to] = named(l, l.byLoweredName, loweredName, lessLowered);
        for (auto it = from; it != to; ++it) {
            types.push_back(l.entries[*it].type);
        }
        return l.listed;
    }

    bool status(const std::string& path, FileStatus& st) override { return inner_.status(path, st); }
    bool readLink(const std::string& path, std::string& target, std::size_t limit) override {
        bool read = false;
        for (const auto& ahead : ahead_) {
            if (limit == ReadAhead::kLinkLimit && ahead->takeLink(path, read, target)) {
                return read;
            }
        }
        return inner_.readLink(path, target, limit);
    }
    bool fsStatus(const std::string& path, FsStatus& st) override { return inner_.fsStatus(path, st); }
    bool deviceReadable(const std::string& path) override { return inner_.deviceReadable(path); }
    std::string hostName() override { return inner_.hostName(); }

    RunOutcome run(const std::string& program, const std::list<std::string>& args, std::string& output,
                   int& status) override {
        const std::size_t before = output.size();
        RunOutcome outcome = RunOutcome::NotStarted;
        if (!takeAhead(program, args, output, status, outcome)) {
            outcome = inner_.run(program, args, output, status);
        }
        note(program, args, outcome, status, output.size() - before);
        return outcome;
    }

    void startCommands(const std::vector<CommandLine>& commands) {
        if (!inner_.allowsConcurrentCommands()) {
            return;
        }
        for (const CommandLine& line : commands) {
            auto c = std::make_unique<AheadCommand>();
            c->program = line.first;
            c->args = line.second;
            AheadCommand* raw = c.get();
            try {
                c->thread = std::thread([this, raw] {
                    raw->outcome = inner_.run(raw->program, raw->args, raw->output, raw->status);
                });
            } catch (const std::system_error&) {
                continue;  // no thread: the run starts it itself when it comes to it
            }
            commandsAhead_.push_back(std::move(c));
        }
    }

    RunOutcome describeContent(const std::string& path, std::string& output, int& status) override {
        if (leftAlone(path)) {
            return RunOutcome::NotStarted;  // the device's own warning says why: not a tool failure
        }
        const std::size_t before = output.size();
        const RunOutcome outcome = inner_.describeContent(path, output, status);
        note("file", {"-s", path}, outcome, status, output.size() - before);
        return outcome;
    }

    IoctlResult scsiInquiry(const std::string& device, unsigned int timeoutSeconds) override {
        if (leftAlone(device)) {
            IoctlResult r;
            r.err = ENXIO;
            return r;
        }
        return inner_.scsiInquiry(device, timeoutSeconds);
    }
    ScsiAddressResult scsiAddress(const std::string& device) override {
        if (leftAlone(device)) {
            ScsiAddressResult r;
            r.scsiIdErrno = ENXIO;
            return r;
        }
        return inner_.scsiAddress(device);
    }
    unsigned int readCapacityBlockSize(const std::string& device, bool sixteen) override {
        return leftAlone(device) ? 0 : inner_.readCapacityBlockSize(device, sixteen);
    }
    ExclusiveOpen exclusiveOpen(const std::string& device) override {
        if (leftAlone(device)) {
            ExclusiveOpen r;
            r.err = ENXIO;
            return r;
        }
        return inner_.exclusiveOpen(device);
    }
    SignatureProbe readSignatures(const std::string& device) override {
        if (leftAlone(device)) {
            SignatureProbe r;
            r.state = SignatureProbe::Failed;
            r.err = ENXIO;
            return r;
        }
        return inner_.readSignatures(device);
    }
    // Asked once a run: the planner asks it of every device, and a snapshot answers from a file.
    bool privileged() override {
        if (!privileged_) {
            privileged_ = inner_.privileged();
        }
        return *privileged_;
    }

    void probeAhead(const std::vector<DeviceProbes>& plan, unsigned int inquiryTimeout) override {
        std::vector<DeviceProbes> wanted;
        wanted.reserve(plan.size());
        for (const DeviceProbes& d : plan) {
            if (!leftAlone(d.device)) {
                wanted.push_back(d);
            }
        }
        inner_.probeAhead(wanted, inquiryTimeout);
    }
    std::vector<std::string> takeProbeWarnings() override { return inner_.takeProbeWarnings(); }
    void leaveAlone(const std::vector<std::string>& names) { leftAlone_.insert(names.begin(), names.end()); }

    std::vector<Command> commands_;
    std::vector<std::string> watched_;
    std::vector<std::string> unreadable_;

  private:
    struct AheadCommand {
        std::string program;
        std::list<std::string> args;
        RunOutcome outcome = RunOutcome::NotStarted;
        std::string output;
        int status = 0;
        bool taken = false;
        std::thread thread;
    };

    // The result of a command started ahead with the same command line, waiting for it to end.
    bool takeAhead(const std::string& program, const std::list<std::string>& args, std::string& output,
                   int& status, RunOutcome& outcome) {
        for (auto& c : commandsAhead_) {
            if (c->taken || c->program != program || c->args != args) {
                continue;
            }
            c->taken = true;
            c->thread.join();
            outcome = c->outcome;
            if (outcome == RunOutcome::Exited) {
                status = c->status;
                output += c->output;
            }
            std::string().swap(c->output);
            return true;
        }
        return false;
    }

    void note(const std::string& program, const std::list<std::string>& args, RunOutcome outcome, int status,
              std::size_t outputBytes) {
        Command c;
        c.program = program;
        c.args = args;
        c.outcome = outcome;
        c.status = outcome == RunOutcome::Exited ? status : 0;
        c.outputBytes = outputBytes;
        commands_.push_back(std::move(c));
    }

    bool leftAlone(const std::string& device) const {
        return !leftAlone_.empty() && leftAlone_.count(kernelName(device)) != 0;
    }

    enum class Known { Unknown, Absent, Regular };

    // What the listings made so far in this run say of `path`: a directory on its way (or the last
    // one) was listed without the next name in it, or the last one lists it as a regular file.
    Known known(const std::string& path) {
        if (path.empty() || path[0] != '/' || path.find("//") != std::string::npos ||
            path.find("/.") != std::string::npos) {
            return Known::Unknown;  // only plain paths are matched against listings
        }
        for (std::string::size_type slash = path.rfind('/'); slash != std::string::npos && slash > 0;
             slash = path.rfind('/', slash - 1)) {
            auto it = listings_.find(path.substr(0, slash));
            if (it != listings_.end() && it->second.listed) {
                const Known k = lookUp(it->second, path, slash);
                if (k != Known::Unknown || slash == path.rfind('/')) {
                    return k;
                }
                break;  // the way exists so far; the file's own directory may tell more
            }
        }
        const std::string::size_type last = path.rfind('/');
        if (last == std::string::npos || last == 0 || !inner_.prefersListedReads()) {
            return Known::Unknown;
        }
        // The file's own directory, listed once for all the files read from it.
        Listing& l = listing(path.substr(0, last));
        return l.listed ? lookUp(l, path, last) : Known::Unknown;
    }

    // What the listing of the directory that ends at `slash` says of the next name of `path`.
    static Known lookUp(Listing& l, const std::string& path, std::string::size_type slash) {
        const std::string::size_type end = path.find('/', slash + 1);
        const std::string_view name =
            std::string_view(path).substr(slash + 1, end == std::string::npos ? end : end - slash - 1);
        const DirEntry::Type* type = nullptr;
        if (l.entries.size() < kIndexFrom) {
            for (const DirEntry& e : l.entries) {
                type = e.name == name ? &e.type : type;
            }
        } else {
            if (l.byName.empty()) {
                l.byName = positions(l.entries, lessExact);
            }
            const auto [from, to] = named(l, l.byName, name, lessExact);
            type = from == to ? nullptr : &l.entries[*from].type;
        }
        if (type == nullptr) {
            return Known::Absent;
        }
        return end == std::string::npos && *type == DirEntry::File ? Known::Regular : Known::Unknown;
    }

    // Listings shorter than this are searched entry by entry: the thousands of small directories of a
    // large host (a device's own, its holders) would otherwise each carry name tables of their own.
    static constexpr std::size_t kIndexFrom = 32;

    // Whether `name` lower-cased is `lowered`, as util::str::toLower lowers (ASCII letters only).
    static bool equalLowered(const std::string& name, const std::string& lowered) {
        if (name.size() != lowered.size()) {
            return false;
        }
        for (std::size_t i = 0; i < name.size(); ++i) {
            const char c =
                name[i] >= 'A' && name[i] <= 'Z' ? static_cast<char>(name[i] - 'A' + 'a') : name[i];
            if (c != lowered[i]) {
                return false;
            }
        }
        return true;
    }

    Listing& listing(const std::string& path) {
        auto it = listings_.find(path);
        if (it == listings_.end()) {
            it = listings_.emplace(path, Listing()).first;
            Listing& l = it->second;
            bool taken = false;
            for (auto ahead = ahead_.begin(); ahead != ahead_.end() && !taken; ++ahead) {
                taken = (*ahead)->takeDirectory(path, l.listed, l.entries);
            }
            if (!taken) {
                l.listed = inner_.listDirectory(path, l.entries);
            }
        }
        return it->second;
    }

    void noteRead(const std::string& path, bool read) {
        if (!read && std::find(watched_.begin(), watched_.end(), path) != watched_.end() &&
            std::find(unreadable_.begin(), unreadable_.end(), path) == unreadable_.end()) {
            unreadable_.push_back(path);
        }
    }

    View& inner_;
    std::unordered_set<std::string> leftAlone_;
    std::optional<bool> privileged_;
    std::vector<std::unique_ptr<AheadCommand>> commandsAhead_;
    std::unordered_map<std::string, Listing> listings_;
    std::vector<std::unique_ptr<ReadAhead>> ahead_;  // last: their threads end before the members above go
};

namespace {
thread_local RunScope* t_scope = nullptr;
}

RunScope::RunScope(std::vector<std::string> watched)
    : view_(std::make_unique<CachingView>(current())),
      previous_(detail::t_scopeView),
      previousScope_(t_scope) {
    view_->watched_ = std::move(watched);
    detail::t_scopeView = view_.get();
    t_scope = this;
}

RunScope::~RunScope() {
    detail::t_scopeView = previous_;
    t_scope = previousScope_;
}

void RunScope::noteFailure(const std::string& source, const std::string& reason) {
    if (t_scope != nullptr) {
        t_scope->failures_.emplace_back(source, reason);
    }
}

const std::vector<RunScope::Command>& RunScope::commands() const {
    return view_->commands_;
}

const std::vector<std::string>& RunScope::unreadable() const {
    return view_->unreadable_;
}

bool RunScope::wasUnreadable(const std::string& path) const {
    return std::find(view_->unreadable_.begin(), view_->unreadable_.end(), path) != view_->unreadable_.end();
}

void RunScope::runAhead(const std::vector<CommandLine>& commands) {
    if (t_scope != nullptr) {
        t_scope->view_->startCommands(commands);
    }
}

void RunScope::probeAhead(const std::vector<DeviceProbes>& plan, unsigned int inquiryTimeout) {
    if (t_scope != nullptr) {
        t_scope->view_->probeAhead(plan, inquiryTimeout);
    }
}

void RunScope::leaveAlone(const std::vector<std::string>& kernelNames) {
    if (t_scope != nullptr) {
        t_scope->view_->leaveAlone(kernelNames);
    }
}

std::vector<std::string> RunScope::probeWarnings() {
    return view_->takeProbeWarnings();
}

void RunScope::readAhead(std::vector<std::string> bases, std::vector<Ahead> within) {
    if (t_scope != nullptr) {
        t_scope->view_->startReadAhead(std::move(bases), std::move(within));
    }
}

void RunScope::endReading() {
    if (t_scope != nullptr) {
        t_scope->view_->endReading();
    }
}

}  // namespace vessa::sal::sys
