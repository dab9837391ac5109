#include "platform/hax/SshTransport.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

#include "platform/Exception.h"
#include "platform/Log.h"
#include "platform/SafeFile.h"
#include "platform/Str.h"
#include "platform/view/SystemView.h"

namespace vessa::hax {

namespace {

constexpr const char* kUnit = "hax/SshTransport";

// The scripts run by `sh -c` on the host; their arguments arrive as "$1", "$2", ...
// A variable's value; the install directory of the package answers for VESSA_VLTT_INSTALL_DIR when
// the session has no such variable.
constexpr const char* kEnvScript =
    "printenv -- \"$1\" && exit 0\n"
    "if [ \"$1\" = VESSA_VLTT_INSTALL_DIR ] && command -v vessa.shed.env >/dev/null 2>&1; then\n"
    "  vessa.shed.env --no-lm | sed -n 's/^vltt\\.installdir=//p'\n"
    "fi\n"
    "exit 0";
// Type letter, blank, name, NUL for every entry of a directory (a link to a directory is followed).
constexpr const char* kListScript =
    "case $1 in /*) ;; *) set -- \"./$1\" ;; esac\n"
    "exec find -H \"$1\" -mindepth 1 -maxdepth 1 -printf '%y %f\\0'";
constexpr const char* kPutScript = "cat > \"$1\"";
constexpr const char* kGetScript = "cat < \"$1\"";
constexpr const char* kDeleteScript = "exec rm -rf -- \"$1\"";
constexpr const char* kStartScript =
    "command -v \"$1\" >/dev/null 2>&1 || { echo \"$1: not found\" >&2; exit 127; }\n"
    "cd / && \"$@\" </dev/null >/dev/null 2>&1 &\n"
    "echo $!";
// A process that has ended but is not reaped yet (state Z) no longer runs.
constexpr const char* kRunningScript =
    "for p; do\n"
    "  kill -0 \"$p\" 2>/dev/null || continue\n"
    "  s=; read -r s < /proc/$p/stat 2>/dev/null; s=${s##*) }\n"
    "  [ \"${s%% *}\" = Z ] || echo \"$p\"\n"
    "done; exit 0";
constexpr const char* kSignalScript = "s=$1; shift; for p; do kill -\"$s\" \"$p\" 2>/dev/null; done; exit 0";
// A program run to its end. The line kStarted on standard error tells the caller that everything before
// the program itself went well; what fails before it is a failure to run, reported by status 255.
constexpr const char* kStarted =
    "\x1e"
    "vessa: started";
// The program runs beside a watcher of the session: ssh gives the remote side no input, so standard
// input ends only when the session does (the controller ended ssh, or the connection died), and the
// watcher then ends the program rather than leave it running on the host. Every builtin of the watcher
// runs in its one subshell, so ending that subshell leaves nothing behind.
constexpr const char* kRunScript =
    "d=$1; c=$2; shift 2\n"
    "if [ -n \"$d\" ]; then\n"
    "  if [ \"$c\" = 1 ]; then mkdir -p -- \"$d\" || exit 255; fi\n"
    "  cd -- \"$d\" || exit 255\n"
    "fi\n"
    "command -v \"$1\" >/dev/null 2>&1 || { echo \"$1: not found\" >&2; exit 255; }\n"
    "printf '\\036vessa: started\\n' >&2\n"
    "exec 3<&0 </dev/null\n"
    "\"$@\" 3<&- &\n"
    "p=$!\n"
    "( while IFS= read -r _; do :; done <&3; kill -TERM \"$p\" ) >/dev/null 2>&1 &\n"
    "w=$!\n"
    "exec 3<&-\n"
    "wait \"$p\"; s=$?\n"
    "kill \"$w\" 2>/dev/null\n"
    "exit $s";

constexpr std::size_t kErrorTail = 4096;

// The last line that is not blank, without its line end; "" when there is none.
std::string lastLine(const std::string& text) {
    std::istringstream in(text);
    std::string last;
    for (std::string line; std::getline(in, line);) {
        const std::string trimmed = util::str::trim(line);
        if (!trimmed.empty()) {
            last = trimmed;
        }
    }
    return last;
}

void keepTail(std::string& tail, const char* data, std::size_t size) {
    tail.append(data, size);
    if (tail.size() > kErrorTail) {
        tail.erase(0, tail.size() - kErrorTail);
    }
}

bool validName(const std::string& name) {
    if (name.empty() || std::isdigit(static_cast<unsigned char>(name[0]))) {
        return false;
    }
    return std::all_of(name.begin(), name.end(),
                       [](char c) { return c == '_' || std::isalnum(static_cast<unsigned char>(c)); });
}

FSItem::typecode typeOfLetter(char letter) {
    switch (letter) {
        case 'f':
            return FSItem::file;
        case 'd':
            return FSItem::directory;
        case 'l':
            return FSItem::link;
        case 'b':
        case 'c':
            return FSItem::device;
        default:
            return FSItem::other;
    }
}

std::list<std::string> numbers(const std::vector<int>& pids) {
    std::list<std::string> out;
    for (int p : pids) {
        out.push_back(std::to_string(p));
    }
    return out;
}

}  // namespace

std::string shellQuote(const std::string& word) {
    if (word.find('\0') != std::string::npos) {
        throw Exception("an argument for a remote host holds a NUL byte", sal::err::kConversion);
    }
    std::string out = "'";
    for (char c : word) {
        if (c == '\'') {
            out += "'\\''";
        } else {
            out += c;
        }
    }
    return out + "'";
}

std::string remoteCommandLine(const std::string& script, const std::list<std::string>& args) {
    std::string line = "sh -c " + shellQuote(script) + " sh";
    for (const std::string& a : args) {
        line += ' ';
        line += shellQuote(a);
    }
    return line;
}

namespace {

// Whether `dir` (resolved) may hold our sockets: see controlDirectory().
bool trustedDirectory(const std::string& dir) {
    const uid_t me = ::geteuid();
    struct stat st;
    if (::lstat(dir.c_str(), &st) != 0 || !S_ISDIR(st.st_mode) || st.st_uid != me ||
        (st.st_mode & 077) != 0) {
        return false;
    }
    for (std::string above = dir; above != "/";) {
        above = above.substr(0, std::max<std::string::size_type>(above.rfind('/'), 1));
        if (::lstat(above.c_str(), &st) != 0 || !S_ISDIR(st.st_mode) || (st.st_uid != me && st.st_uid != 0)) {
            return false;
        }
        const bool othersWrite = (st.st_mode & 022) != 0;
        if (othersWrite && !(st.st_uid == 0 && (st.st_mode & S_ISVTX) != 0)) {
            return false;
        }
    }
    return true;
}

// `dir` made (0700) when missing and resolved; "" when it is not trusted or too long.
std::string usableDirectory(const std::string& dir, std::size_t longest) {
    if (dir.empty() || dir.size() > longest || (::mkdir(dir.c_str(), 0700) != 0 && errno != EEXIST)) {
        return "";
    }
    char* resolved = ::realpath(dir.c_str(), nullptr);
    if (resolved == nullptr) {
        return "";
    }
    const std::string real = resolved;
    std::free(resolved);
    return real.size() <= longest && trustedDirectory(real) ? real : "";
}

std::uint64_t fnv1a(std::uint64_t hash, const std::string& text) {
    for (unsigned char c : text) {
        hash = (hash ^ c) * 0x100000001b3ULL;
    }
    return (hash ^ 0xff) * 0x100000001b3ULL;  // ends the field, so that fields cannot run together
}

std::string fileText(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::string text;
    char buffer[4096];
    while (in && text.size() < (1u << 20)) {
        in.read(buffer, sizeof buffer);
        text.append(buffer, static_cast<std::size_t>(in.gcount()));
    }
    return text;
}

constexpr const char* kRunVariable = "VESSA_SSH_RUN";

}  // namespace

std::string controlDirectory() {
    // A socket's path has room for 107 bytes; ssh adds "/", 12 for the key and "-", 40 for %C, and 17
    // while it makes the socket.
    constexpr std::size_t kLongest = 107 - 1 - 13 - 40 - 17;
    const char* runtime = std::getenv("XDG_RUNTIME_DIR");
    if (runtime != nullptr && runtime[0] == '/') {
        const std::string dir = usableDirectory(std::string(runtime) + "/vessa-ssh", kLongest);
        if (!dir.empty()) {
            return dir;
        }
    }
    return usableDirectory("/tmp/vessa-ssh-" + std::to_string(::geteuid()), kLongest);
}

std::string controlKey(const std::string& configFile) {
    std::uint64_t hash = 0xcbf29ce484222325ULL;
    if (!configFile.empty()) {
        hash = fnv1a(fnv1a(hash, configFile), fileText(configFile));
    } else {
        const passwd* pw = ::getpwuid(::geteuid());
        hash = fnv1a(hash, fileText(std::string(pw != nullptr ? pw->pw_dir : "") + "/.ssh/config"));
        hash = fnv1a(hash, fileText("/etc/ssh/ssh_config"));
    }
    const char* run = std::getenv(kRunVariable);
    hash = fnv1a(hash, run != nullptr && run[0] != '\0' ? run : std::to_string(::getpid()));
    char text[13];  // 48 bits are plenty to tell a run's configuration from another's
    std::snprintf(text, sizeof text, "%012llx", static_cast<unsigned long long>(hash >> 16));
    return text;
}

struct SshTransport::Call {
    bool noInput = true;
    std::string inputFile;
    // Receives standard output; without it the output is collected and returned.
    std::function<void(const char*, std::size_t)> output;
    bool unboundedOutput = false;
};

SshTransport::SshTransport() : SshTransport(Options()) {
    // The launchers this process starts join its run's connections; a launcher passes the value on.
    const char* run = std::getenv(kRunVariable);
    if (run == nullptr || run[0] == '\0') {
        sal::sys::setCommandVariable(kRunVariable, std::to_string(::getpid()));
    }
}

SshTransport::SshTransport(Options options)
    : SshTransport(std::move(options),
                   [](const std::string& program, const std::list<std::string>& args,
                      const sal::exec::RunStreams& streams, const sal::exec::RunLimits& limits) {
                       return sal::exec::runBounded(program, args, streams, limits);
                   }) {}

SshTransport::SshTransport(Options options, Runner runner)
    : options_(std::move(options)), runner_(std::move(runner)) {}

std::string SshTransport::configFile() const {
    return options_.configFile.empty() ? sshConfig() : options_.configFile;
}

// -F, and where the sockets are: what every call and endConnections() agree on.
std::list<std::string> SshTransport::commonArguments() const {
    std::list<std::string> args;
    const std::string config = configFile();
    if (!config.empty()) {
        args.insert(args.end(), {"-F", config});
    }
    // Without sharing no socket directory is looked for (or made).
    const std::string sockets = !options_.shareConnections          ? std::string()
                                : options_.controlDirectory.empty() ? controlDirectory()
                                                                    : options_.controlDirectory;
    if (sockets.empty()) {
        args.insert(args.end(), {"-o", "ControlMaster=no"});
    } else {
        args.insert(args.end(), {"-o", "ControlPath=" + sockets + "/" + controlKey(config) + "-%C"});
    }
    return args;
}

std::list<std::string> SshTransport::sshArguments(const std::string& address, const std::string& remoteLine,
                                                  bool noInput) const {
    std::list<std::string> args = commonArguments();
    args.insert(args.end(),
                {"-o", "BatchMode=yes", "-o", "ConnectTimeout=" + std::to_string(options_.connectTimeout),
                 "-o", "ServerAliveInterval=15", "-o", "ServerAliveCountMax=3", "-o", "ForwardAgent=no", "-o",
                 "ForwardX11=no"});
    if (std::find(args.begin(), args.end(), "ControlMaster=no") == args.end()) {
        args.insert(args.end(), {"-o", "ControlMaster=auto", "-o", "ControlPersist=60"});
    }
    args.push_back("-T");
    if (noInput) {
        args.push_back("-n");
    }
    args.insert(args.end(), {"--", address, remoteLine});
    return args;
}

void SshTransport::endConnections(const std::vector<std::string>& hosts) {
    VESSA_TRACE(kUnit, "SshTransport::endConnections");
    std::list<std::string> common = commonArguments();
    if (std::find(common.begin(), common.end(), "ControlMaster=no") != common.end()) {
        return;
    }
    sal::exec::RunLimits limits;
    limits.timeoutSeconds = 5;
    sal::exec::RunStreams streams;
    streams.output = [](const char*, std::size_t) {};
    streams.error = [](const char*, std::size_t) {};
    for (const std::string& host : hosts) {
        std::list<std::string> args = common;
        args.insert(args.end(), {"-o", "BatchMode=yes", "-O", "exit", "--", host});
        try {
            runner_(options_.program, args, streams, limits);
        } catch (const Exception& e) {
            VESSA_LOG << "cannot end the connection to " << host << ": " << e.why();
        }
    }
}

std::string SshTransport::call(const std::string& address, const std::string& what, const std::string& script,
                               const std::list<std::string>& args, const Call& how) {
    VESSA_TRACE(kUnit, "SshTransport::call");
    const std::list<std::string> argv = sshArguments(address, remoteCommandLine(script, args), how.noInput);
    VESSA_LOG << "ssh to " << address << " for " << what;
    std::string output;
    std::string errors;
    sal::exec::RunStreams streams;
    streams.output = how.output ? how.output : [&output](const char* data, std::size_t size) {
        output.append(data, size);
    };
    streams.error = [&errors](const char* data, std::size_t size) { keepTail(errors, data, size); };
    streams.inputFile = how.inputFile;
    streams.hasEnv = true;
    streams.env = sal::sys::commandEnvironment();
    sal::exec::RunLimits limits = sal::sys::commandLimits();
    if (how.unboundedOutput) {
        limits.maxOutput = static_cast<std::size_t>(-1);
    }
    sal::exec::RunResult result;
    try {
        result = runner_(options_.program, argv, streams, limits);
    } catch (const Exception& e) {
        // ssh did not start here (no ssh, no descriptors left): nothing was tried on the host.
        throw Exception("cannot run ssh on this machine for " + what + " on " + address + ": " + e.why(),
                        e.code(), e.domain());
    }
    if (result.outcome == sal::exec::RunResult::TimedOut) {
        throw Exception("no answer from " + address + " for " + what + " within " +
                        std::to_string(limits.timeoutSeconds) + " s");
    }
    if (result.outcome == sal::exec::RunResult::TooMuchOutput) {
        throw Exception(
            address + " answered more than " + std::to_string(limits.maxOutput) + " bytes for " + what,
            sal::err::kProtocol);
    }
    if (result.status != 0) {
        std::string reason = lastLine(errors);
        if (reason.empty()) {
            reason = "ssh ended with status " + std::to_string(result.status);
        }
        VESSA_LOG << "failed: " << reason;
        throw Exception(
            (result.status == 255 ? "cannot reach " : "failed on ") + address + " " + what + ": " + reason,
            sal::err::kNotFound);
    }
    return output;
}

std::string SshTransport::envValueOf(const std::string& address, const std::string& name) {
    if (!validName(name)) {
        return "";
    }
    std::string value = call(address, "reading the environment value " + name, kEnvScript, {name}, Call());
    if (!value.empty() && value.back() == '\n') {
        value.pop_back();
    }
    return value;
}

int SshTransport::listDirectory(const std::string& address, const std::string& directory,
                                std::list<FSItem>& items) {
    const std::string out =
        call(address, "listing the directory " + directory, kListScript, {directory}, Call());
    std::vector<FSItem> found;
    std::string::size_type pos = 0;
    for (std::string::size_type end; (end = out.find('\0', pos)) != std::string::npos; pos = end + 1) {
        if (end - pos < 3 || out[pos + 1] != ' ') {
            throw Exception(address + " listed " + directory + " in a form that is not understood",
                            sal::err::kProtocol);
        }
        found.emplace_back(out.substr(pos + 2, end - pos - 2), typeOfLetter(out[pos]));
    }
    // In name order, as a local listing gives them.
    std::sort(found.begin(), found.end(),
              [](const FSItem& a, const FSItem& b) { return a.name() < b.name(); });
    items.insert(items.end(), found.begin(), found.end());
    return static_cast<int>(found.size());
}

void SshTransport::putFSItem(const std::string& address, const std::string& local,
                             const std::string& remote) {
    Call how;
    how.noInput = false;
    how.inputFile = local;
    call(address, "writing " + remote, kPutScript, {remote}, how);
}

void SshTransport::getFSItem(const std::string& address, const std::string& remote,
                             const std::string& local) {
    // Written to a new file beside the target and renamed over it when whole (platform/SafeFile.h): a
    // failed copy leaves the old file, and nothing prepared at a name beside it is written through.
    sal::posix::SafeFile file(local, 0644);
    std::ostream& out = file.stream();
    Call how;
    how.unboundedOutput = true;
    how.output = [&out](const char* data, std::size_t size) {
        out.write(data, static_cast<std::streamsize>(size));
    };
    call(address, "reading " + remote, kGetScript, {remote}, how);
    file.commit();
}

void SshTransport::deleteFSItem(const std::string& address, const std::string& path) {
    call(address, "deleting " + path, kDeleteScript, {path}, Call());
}

int SshTransport::startProcess(const std::string& address, const std::string& program,
                               const std::list<std::string>& args) {
    std::list<std::string> words = args;
    words.push_front(program);
    const std::string out = call(address, "starting " + program, kStartScript, words, Call());
    int pid = 0;
    util::str::to(pid, out);
    return pid;
}

std::vector<int> SshTransport::runningProcesses(const std::string& address, const std::vector<int>& pids) {
    std::istringstream out(call(address, "listing processes", kRunningScript, numbers(pids), Call()));
    std::vector<int> alive;
    for (int pid; out >> pid;) {
        alive.push_back(pid);
    }
    return alive;
}

void SshTransport::signalProcesses(const std::string& address, const std::vector<int>& pids, int signal) {
    std::list<std::string> words = numbers(pids);
    words.push_front(std::to_string(signal));
    call(address, "ending processes", kSignalScript, words, Call());
}

int SshTransport::run(const std::string& address, const std::string& workdir, bool createWorkdir,
                      const std::string& program, const std::list<std::string>& args, const Sink& output,
                      const Sink& error, const sal::exec::RunLimits& limits, const std::string& label) {
    VESSA_TRACE(kUnit, "SshTransport::run");
    const std::string& name = label.empty() ? program : label;
    std::list<std::string> words = {workdir, createWorkdir ? "1" : "0", program};
    words.insert(words.end(), args.begin(), args.end());
    // Standard input stays open and unwritten: its end tells the host that the session is over.
    const std::list<std::string> argv = sshArguments(address, remoteCommandLine(kRunScript, words), false);
    // Until the start line arrives, standard error is what ssh and the script say: held back line by
    // line, passed on once the program runs, or made the reason when it never does.
    bool started = false;
    std::string pending;
    std::string before;
    sal::exec::RunStreams streams;
    streams.output = output;
    streams.error = [&](const char* data, std::size_t size) {
        if (started) {
            if (error) {
                error(data, size);
            }
            return;
        }
        pending.append(data, size);
        for (std::string::size_type nl; !started && (nl = pending.find('\n')) != std::string::npos;) {
            const std::string line = pending.substr(0, nl + 1);
            pending.erase(0, nl + 1);
            if (line.compare(0, std::strlen(kStarted), kStarted) == 0) {
                started = true;
                if (error && !before.empty()) {
                    error(before.data(), before.size());
                }
            } else {
                before += line;
            }
        }
        if (started && !pending.empty() && error) {
            error(pending.data(), pending.size());
            pending.clear();
        }
    };
    streams.hasEnv = true;
    streams.env = sal::sys::commandEnvironment();
    sal::exec::RunResult result;
    try {
        result = runner_(options_.program, argv, streams, limits);
    } catch (const Exception& e) {
        throw Exception("cannot run ssh on this machine to run " + name + " on " + address + ": " + e.why(),
                        e.code(), e.domain());
    }
    if (result.outcome == sal::exec::RunResult::TimedOut) {
        throw Exception(name + " on " + address + " did not end within " +
                        std::to_string(limits.timeoutSeconds) + " s");
    }
    if (result.outcome == sal::exec::RunResult::TooMuchOutput) {
        throw Exception(name + " on " + address + " wrote more than " + std::to_string(limits.maxOutput) +
                        " bytes");
    }
    if (!started) {
        std::string reason = lastLine(before + pending);
        if (reason.empty()) {
            reason = "ssh ended with status " + std::to_string(result.status);
        }
        throw Exception("cannot run " + name + " on " + address + ": " + reason, sal::err::kNotFound);
    }
    return result.status;
}

}  // namespace vessa::hax
