#include "platform/view/RunScope.h"

#include <unordered_map>
#include <unordered_set>

#include "platform/Str.h"

namespace vessa::sal::sys {

namespace detail {
extern thread_local View* t_scopeView;
}

namespace {

// One directory as listed once: its entries in the view's order, and its names lower-cased for look-ups.
struct Listing {
    bool listed = false;
    std::vector<DirEntry> entries;
    std::unordered_multimap<std::string, DirEntry::Type> byLoweredName;
    bool indexed = false;
    std::unordered_map<std::string, DirEntry::Type> byName;  // made when first needed

};

}  // namespace

class RunScope::CachingView : public View {
  public:
    explicit CachingView(View& inner) : inner_(inner) {}

    const std::string& root() const override { return inner_.root(); }

    bool readFile(const std::string& path, std::string& content) override {
        bool read = false;
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
        if (!read && unreadableSet_.insert(path).second) {
            unreadable_.push_back(path);
        }
        return read;
    }

    bool listDirectory(const std::string& path, std::vector<DirEntry>& entries) override {
        const Listing& l = listing(path);
        entries.insert(entries.end(), l.entries.begin(), l.entries.end());
        return l.listed;
    }

    bool entryTypes(const std::string& directory, const std::string& loweredName,
                    std::vector<DirEntry::Type>& types) override {
        Listing& l = listing(directory);
        if (!l.indexed) {
            l.byLoweredName.reserve(l.entries.size());
            for (const DirEntry& e : l.entries) {
                l.byLoweredName.emplace(util::str::toLower(e.name), e.type);
            }
            l.indexed = true;
        }
        // Equal keys come back in no fixed order; the callers only ask whether one of them fits.
        auto range = l.byLoweredName.equal_range(loweredName);
        for (auto it = range.first; it != range.second; ++it) {
            types.push_back(it->second);
        }
        return l.listed;
    }

    bool status(const std::string& path, FileStatus& st) override { return inner_.status(path, st); }
    bool readLink(const std::string& path, std::string& target, std::size_t limit) override {
        return inner_.readLink(path, target, limit);
    }
    bool fsStatus(const std::string& path, FsStatus& st) override { return inner_.fsStatus(path, st); }
    bool deviceReadable(const std::string& path) override { return inner_.deviceReadable(path); }
    std::string hostName() override { return inner_.hostName(); }

    RunOutcome run(const std::string& program, const std::list<std::string>& args, std::string& output,
                   int& status) override {
        const std::size_t before = output.size();
        Command c;
        c.program = program;
        c.args = args;
        c.outcome = inner_.run(program, args, output, status);
        c.status = c.outcome == RunOutcome::Exited ? status : 0;
        c.outputBytes = output.size() - before;
        commands_.push_back(std::move(c));
        return commands_.back().outcome;
    }

    IoctlResult scsiInquiry(const std::string& device, unsigned int timeoutSeconds) override {
        return inner_.scsiInquiry(device, timeoutSeconds);
    }
    ScsiAddressResult scsiAddress(const std::string& device) override { return inner_.scsiAddress(device); }
    unsigned int readCapacityBlockSize(const std::string& device, bool sixteen) override {
        return inner_.readCapacityBlockSize(device, sixteen);
    }
    ExclusiveOpen exclusiveOpen(const std::string& device) override { return inner_.exclusiveOpen(device); }
    bool privileged() override { return inner_.privileged(); }

    std::vector<Command> commands_;
    std::vector<std::string> unreadable_;
    std::unordered_set<std::string> unreadableSet_;

  private:
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
        if (l.byName.empty() && !l.entries.empty()) {
            for (const DirEntry& e : l.entries) {
                l.byName.emplace(e.name, e.type);
            }
        }
        const std::string::size_type end = path.find('/', slash + 1);
        auto entry = l.byName.find(path.substr(slash + 1, end == std::string::npos ? end : end - slash - 1));
        if (entry == l.byName.end()) {
            return Known::Absent;
        }
        return end == std::string::npos && entry->second == DirEntry::File ? Known::Regular : Known::Unknown;
    }

    Listing& listing(const std::string& path) {
        auto it = listings_.find(path);
        if (it == listings_.end()) {
            it = listings_.emplace(path, Listing()).first;
            it->second.listed = inner_.listDirectory(path, it->second.entries);
        }
        return it->second;
    }

    View& inner_;
    std::unordered_map<std::string, Listing> listings_;
};

namespace {
thread_local RunScope* t_scope = nullptr;
}

RunScope::RunScope()
    : view_(std::make_unique<CachingView>(current())),
      previous_(detail::t_scopeView),
      previousScope_(t_scope) {
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
    return view_->unreadableSet_.count(path) != 0;
}

}  // namespace vessa::sal::sys
