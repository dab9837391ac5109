#include "platform/view/ProbePool.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>

namespace vessa::sal::sys {

namespace {

using Clock = std::chrono::steady_clock;

std::string key(const ProbeRequest& r) {
    return std::string(1, static_cast<char>(r.kind)) + r.device;
}

// The key of the content test a signature probe makes with it; "" for none.
std::string contentKey(const ProbeRequest& r) {
    return r.content.empty() ? "" : key({ProbeKind::Content, r.content});
}

const char* what(ProbeKind kind) {
    switch (kind) {
        case ProbeKind::Inquiry:
            return "a SCSI INQUIRY";
        case ProbeKind::Address:
            return "the SCSI address query";
        case ProbeKind::Capacity10:
        case ProbeKind::Capacity16:
            return "a READ CAPACITY";
        case ProbeKind::Content:
            return "the content test";
        case ProbeKind::Exclusive:
            return "the exclusive-open test";
        case ProbeKind::Signatures:
            return "the signature probe";
    }
    return "a probe";
}

// Frames on a helper's channel: a 32-bit length, then fields (32-bit numbers, strings as a length and
// bytes), in the order both sides write and read them.
class Writer {
  public:
    void number(std::int64_t v) { bytes_.append(reinterpret_cast<const char*>(&v), sizeof v); }
    void text(const std::string& s) {
        number(static_cast<std::int64_t>(s.size()));
        bytes_ += s;
    }
    std::string frame() const {
        const std::uint32_t n = static_cast<std::uint32_t>(bytes_.size());
        return std::string(reinterpret_cast<const char*>(&n), sizeof n) + bytes_;
    }

  private:
    std::string bytes_;
};

class Reader {
  public:
    explicit Reader(const std::string& bytes) : bytes_(bytes) {}
    std::int64_t number() {
        std::int64_t v = 0;
        if (at_ + sizeof v <= bytes_.size()) {
            std::memcpy(&v, bytes_.data() + at_, sizeof v);
        }
        at_ += sizeof v;
        return v;
    }
    std::string text() {
        const auto n = static_cast<std::size_t>(number());
        std::string s = at_ <= bytes_.size() ? bytes_.substr(at_, n) : std::string();
        at_ += n;
        return s;
    }
    bool ok() const { return at_ <= bytes_.size(); }

  private:
    const std::string& bytes_;
    std::size_t at_ = 0;
};

std::string encode(const ProbeRequest& r) {
    Writer w;
    w.number(static_cast<std::int64_t>(r.kind));
    w.number(r.timeoutSeconds);
    w.text(r.device);
    w.text(r.content);
    return w.frame();
}

ProbeRequest decodeRequest(const std::string& bytes) {
    Reader in(bytes);
    ProbeRequest r;
    r.kind = static_cast<ProbeKind>(in.number());
    r.timeoutSeconds = static_cast<unsigned int>(in.number());
    r.device = in.text();
    r.content = in.text();
    return r;
}

std::string encode(const ProbeAnswer& a) {
    Writer w;
    w.number(a.answered);
    w.number(a.ioctl.rc);
    w.number(a.ioctl.err);
    w.text(std::string(a.ioctl.data.begin(), a.ioctl.data.end()));
    w.number(a.address.source);
    w.number(a.address.scsiIdErrno);
    w.text(a.address.address);
    w.number(a.blockSize);
    w.number(static_cast<std::int64_t>(a.outcome));
    w.number(a.status);
    w.text(a.text);
    w.number(a.exclusive.result);
    w.number(a.exclusive.err);
    w.text(formatSignatures(a.signatures));
    return w.frame();
}

bool decodeAnswer(const std::string& bytes, ProbeAnswer& a) {
    Reader in(bytes);
    a.answered = in.number() != 0;
    a.ioctl.rc = static_cast<int>(in.number());
    a.ioctl.err = static_cast<int>(in.number());
    const std::string data = in.text();
    a.ioctl.data.assign(data.begin(), data.end());
    a.address.source = static_cast<ScsiAddressResult::Source>(in.number());
    a.address.scsiIdErrno = static_cast<int>(in.number());
    a.address.address = in.text();
    a.blockSize = static_cast<unsigned int>(in.number());
    a.outcome = static_cast<RunOutcome>(in.number());
    a.status = static_cast<int>(in.number());
    a.text = in.text();
    a.exclusive.result = static_cast<ExclusiveOpen::Result>(in.number());
    a.exclusive.err = static_cast<int>(in.number());
    const std::string signatures = in.text();
    if (!signatures.empty()) {
        a.signatures = parseSignatures(signatures);
    }
    return in.ok();
}

// What a device that was not asked, or did not answer, gives: each query failed.
ProbeAnswer unanswered(int err) {
    ProbeAnswer a;
    a.ioctl.rc = -1;
    a.ioctl.err = err;
    a.address.scsiIdErrno = err;
    a.exclusive.result = ExclusiveOpen::Failed;
    a.exclusive.err = err;
    a.signatures.state = SignatureProbe::Failed;
    a.signatures.err = err == EIO ? ETIMEDOUT : err;
    return a;
}

bool readAll(int fd, char* data, std::size_t size) {
    while (size > 0) {
        const ssize_t n = ::read(fd, data, size);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            return false;
        }
        data += n;
        size -= static_cast<std::size_t>(n);
    }
    return true;
}

bool writeAll(int fd, const std::string& bytes) {
    std::size_t at = 0;
    while (at < bytes.size()) {
        const ssize_t n = ::send(fd, bytes.data() + at, bytes.size() - at, MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            return false;
        }
        at += static_cast<std::size_t>(n);
    }
    return true;
}

// A helper's whole life: read a request, probe, answer, until the channel closes.
[[noreturn]] void helperMain(int channel, int devNull, pid_t parent, const ProbePool::Prober& prober) {
    ::dup2(channel, 0);
    ::dup2(devNull, 1);
    ::dup2(devNull, 2);
    ::close_range(3, ~0U, 0);
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::getppid() != parent) {
        ::_exit(0);
    }
    sigset_t none;
    sigemptyset(&none);
    ::pthread_sigmask(SIG_SETMASK, &none, nullptr);
    for (;;) {
        std::uint32_t size = 0;
        if (!readAll(0, reinterpret_cast<char*>(&size), sizeof size)) {
            ::_exit(0);
        }
        std::string bytes(size, '\0');
        if (!readAll(0, bytes.data(), size)) {
            ::_exit(0);
        }
        ProbeAnswer a = prober(decodeRequest(bytes));
        a.answered = true;
        if (!writeAll(0, encode(a))) {
            ::_exit(0);
        }
    }
}

}  // namespace

ProbePool::ProbePool(Prober prober, std::size_t helpers)
    : prober_(std::move(prober)), most_(std::max<std::size_t>(helpers, 1)), self_(::getpid()) {
    devNull_ = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    if (::pipe2(wake_, O_CLOEXEC | O_NONBLOCK) != 0) {
        wake_[0] = wake_[1] = -1;
    }
}

ProbePool::~ProbePool() {
    finish();
}

std::vector<pid_t> ProbePool::finish() {
    {
        std::lock_guard<std::mutex> lock(m_);
        if (finished_) {
            return stuck_;
        }
        finished_ = true;
        stop_ = true;
    }
    wake();
    if (thread_.joinable()) {
        thread_.join();
    }
    for (Helper& h : helpers_) {
        if (h.busy()) {
            ::kill(h.pid, SIGKILL);  // nobody wants its answer now; it ends when its call returns
        }
        ::close(h.channel);  // an idle helper sees the end of its channel and exits at once
    }
    std::vector<pid_t> killed;
    for (const Helper& h : helpers_) {
        if (h.busy()) {
            killed.push_back(h.pid);
        } else {
            while (::waitpid(h.pid, nullptr, 0) < 0 && errno == EINTR) {
            }
        }
    }
    helpers_.clear();
    // A killed helper that was testing a device for exclusive use holds that open until it has ended:
    // a program that tests or takes the device right after this run would find it busy. One that has
    // not ended after a moment is in a call to a device that does not answer, and is left behind.
    const Clock::time_point until = Clock::now() + kEndWait;
    for (reap(killed); !killed.empty() && Clock::now() < until; reap(killed)) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    stuck_.insert(stuck_.end(), killed.begin(), killed.end());
    reap(stuck_);
    for (int fd : {devNull_, wake_[0], wake_[1]}) {
        if (fd >= 0) {
            ::close(fd);
        }
    }
    devNull_ = wake_[0] = wake_[1] = -1;
    return stuck_;
}

void ProbePool::reap(std::vector<pid_t>& pids) {
    pids.erase(
        std::remove_if(pids.begin(), pids.end(), [](pid_t p) { return ::waitpid(p, nullptr, WNOHANG) != 0; }),
        pids.end());
}

std::vector<std::string> ProbePool::takeWarnings() {
    std::lock_guard<std::mutex> lock(m_);
    std::vector<std::string> out;
    out.swap(warnings_);
    return out;
}

void ProbePool::wake() {
    if (wake_[1] >= 0) {
        const char c = 0;
        [[maybe_unused]] const ssize_t n = ::write(wake_[1], &c, 1);
    }
}

bool ProbePool::startThread() {
    if (thread_.joinable() || threadFailed_) {
        return !threadFailed_;
    }
    try {
        thread_ = std::thread([this] { dispatch(); });
    } catch (const std::system_error& e) {
        threadFailed_ = true;
        warnings_.push_back(std::string("devices could not be probed: no thread for the probes (") +
                            e.what() + ")");
    }
    return !threadFailed_;
}

void ProbePool::start() {
    std::lock_guard<std::mutex> lock(m_);
    std::string why;
    while (!finished_ && helpers_.size() < most_ && spawn(why)) {
    }
}

void ProbePool::ahead(const std::vector<ProbeRequest>& requests) {
    {
        std::lock_guard<std::mutex> lock(m_);
        ahead_.insert(ahead_.end(), requests.begin(), requests.end());
        for (const ProbeRequest& r : requests) {
            if (!r.content.empty()) {
                together_[key(r)] = r;
                together_[contentKey(r)] = r;
            }
            if (r.kind == ProbeKind::Exclusive && !r.disk.empty()) {
                diskOf_[kernelName(r.device)] = kernelName(r.disk);
            }
        }
        startThread();
    }
    wake();
}

ProbeAnswer ProbePool::ask(const ProbeRequest& request) {
    const std::string k = key(request);
    std::unique_lock<std::mutex> lock(m_);
    auto found = answers_.find(k);
    if (found != answers_.end()) {
        return found->second;
    }
    if (!startThread() || wake_[0] < 0) {
        return unanswered(EAGAIN);
    }
    if (inFlight_.count(k) == 0) {
        // A probe still waiting to go together with another goes now, together with it.
        const auto together = together_.find(k);
        urgent_.push_front(together != together_.end() ? together->second : request);
        wake();
    }
    answered_.wait(lock, [&] { return answers_.count(k) != 0; });
    return answers_[k];
}

void ProbePool::fail(const ProbeRequest& r) {
    answers_[key(r)] = unanswered(EIO);
    if (const std::string c = contentKey(r); !c.empty()) {
        inFlight_.erase(c);
        answers_.try_emplace(c, unanswered(EIO));
    }
    answered_.notify_all();
}

bool ProbePool::spawn(std::string& why) {
    int pair[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair) != 0) {
        why = std::string("socketpair: ") + std::strerror(errno);
        return false;
    }
    const pid_t pid = ::fork();
    if (pid == 0) {
        helperMain(pair[1], devNull_, self_, prober_);
    }
    const int err = errno;
    ::close(pair[1]);
    if (pid < 0) {
        ::close(pair[0]);
        why = std::string("fork: ") + std::strerror(err);
        return false;
    }
    ::fcntl(pair[0], F_SETFL, ::fcntl(pair[0], F_GETFL) | O_NONBLOCK);
    Helper h;
    h.pid = pid;
    h.channel = pair[0];
    helpers_.push_back(std::move(h));
    return true;
}

// Hands the next probes to idle helpers, starting helpers up to the limit. Called with the lock held.
void ProbePool::assign() {
    dropEnded();
    for (;;) {
        std::deque<ProbeRequest>* queue = !urgent_.empty() ? &urgent_ : !ahead_.empty() ? &ahead_ : nullptr;
        if (queue == nullptr) {
            return;
        }
        const ProbeRequest r = queue->front();
        const std::string k = key(r);
        const auto take = [&] {
            queue->pop_front();
            if (!r.content.empty()) {
                together_.erase(k);  // on its way now, made already or failed: an ask waits for it
                together_.erase(contentKey(r));
            }
        };
        if (answers_.count(k) != 0 || inFlight_.count(k) != 0) {
            take();
            // Its signatures were asked for alone: the content test it was to make goes on its own.
            if (const std::string c = contentKey(r);
                !c.empty() && answers_.count(c) == 0 && inFlight_.count(c) == 0) {
                queue->push_front({ProbeKind::Content, r.content, r.timeoutSeconds});
            }
            continue;
        }
        if (silent_.count(kernelName(r.device)) != 0) {
            take();
            fail(r);
            continue;
        }
        // An exclusive-open test goes behind those of its disk still in flight, on their helper, even
        // past the usual depth: it could not run before them anyway, and the queue behind it need not
        // wait. Any other probe goes to the helper with the fewest in hand, or to a new one while every
        // helper has some.
        const std::string group = exclusiveGroup(r);
        const auto held = group.empty() ? exclusiveAt_.end() : exclusiveAt_.find(group);
        std::vector<Helper>::iterator idle;
        if (held != exclusiveAt_.end()) {
            idle = std::find_if(helpers_.begin(), helpers_.end(),
                                [&](const Helper& h) { return h.pid == held->second.first; });
        } else {
            idle = std::min_element(helpers_.begin(), helpers_.end(), [](const Helper& a, const Helper& b) {
                return a.sent.size() < b.sent.size();
            });
        }
        if (held == exclusiveAt_.end() && (idle == helpers_.end() || idle->busy()) &&
            helpers_.size() < most_) {
            std::string why;
            if (spawn(why)) {
                idle = helpers_.end() - 1;
            } else if (helpers_.empty()) {
                // Nothing can probe: every probe fails, and the run says why once.
                if (cannotStart_.empty()) {
                    cannotStart_ = why;
                    warnings_.push_back("devices could not be probed: no helper process (" + why + ")");
                }
                take();
                fail(r);
                continue;
            }
        }
        if (idle == helpers_.end() || (held == exclusiveAt_.end() && idle->sent.size() >= kDepth)) {
            return;  // every helper has enough in hand
        }
        take();
        if (!idle->busy()) {
            idle->since = Clock::now();
        }
        idle->sent.push_back(r);
        inFlight_.insert(k);
        if (const std::string c = contentKey(r); !c.empty() && answers_.count(c) == 0) {
            inFlight_.insert(c);
        }
        if (!group.empty()) {
            auto& at = exclusiveAt_[group];
            at.first = idle->pid;
            ++at.second;
        }
        if (!writeAll(idle->channel, encode(r))) {
            abandon(*idle, false);  // the helper is gone; its probes fail or go elsewhere
            dropEnded();
        }
    }
}

Clock::time_point ProbePool::Helper::due() const {
    return since + std::chrono::seconds(sent.front().timeoutSeconds) + kGrace;
}

std::string ProbePool::exclusiveGroup(const ProbeRequest& r) const {
    if (r.kind != ProbeKind::Exclusive) {
        return "";
    }
    const std::string name = kernelName(r.device);
    const auto disk = diskOf_.find(name);
    return disk != diskOf_.end() ? disk->second : name;
}

void ProbePool::released(const ProbeRequest& r) {
    if (r.kind != ProbeKind::Exclusive) {
        return;
    }
    const auto at = exclusiveAt_.find(exclusiveGroup(r));
    if (at != exclusiveAt_.end() && --at->second.second == 0) {
        exclusiveAt_.erase(at);
    }
}

void ProbePool::complete(Helper& h, ProbeAnswer answer) {
    const std::string k = key(h.sent.front());
    const std::string c = contentKey(h.sent.front());
    released(h.sent.front());
    h.sent.pop_front();
    h.since = Clock::now();
    inFlight_.erase(k);
    if (!c.empty()) {
        inFlight_.erase(c);
        answers_.try_emplace(c, answer);
    }
    answers_[k] = std::move(answer);
}

void ProbePool::abandon(Helper& h, bool late) {
    ::kill(h.pid, SIGKILL);
    ::close(h.channel);
    if (::waitpid(h.pid, nullptr, WNOHANG) == 0) {
        stuck_.push_back(h.pid);
    }
    h.pid = -1;
    if (!h.busy()) {
        return;
    }
    const ProbeRequest first = h.sent.front();
    const std::string device = kernelName(first.device);
    if (!late) {
        warnings_.push_back(device + ": the helper process of " + what(first.kind) +
                            " ended without an answer: it counts as not seen");
    } else if (silent_.emplace(device, what(first.kind)).second) {
        warnings_.push_back(device + " did not answer " + what(first.kind) + " within " +
                            std::to_string(first.timeoutSeconds) +
                            " s and was not asked anything more: it counts as not seen");
    }
    for (const ProbeRequest& r : h.sent) {
        inFlight_.erase(key(r));
        inFlight_.erase(contentKey(r));
        released(r);
    }
    // The probes behind it were never made: they go first to the other helpers.
    for (auto r = h.sent.rbegin(); r + 1 != h.sent.rend(); ++r) {
        urgent_.push_front(*r);
    }
    h.sent.clear();
    fail(first);
}

void ProbePool::dropEnded() {
    helpers_.erase(
        std::remove_if(helpers_.begin(), helpers_.end(), [](const Helper& h) { return h.pid < 0; }),
        helpers_.end());
}

void ProbePool::receive(Helper& h) {
    char chunk[8192];
    bool ended = false;
    for (;;) {
        const ssize_t n = ::recv(h.channel, chunk, sizeof chunk, 0);
        if (n > 0) {
            h.received.append(chunk, static_cast<std::size_t>(n));
            continue;
        }
        if (n < 0 && errno == EINTR) {
            continue;
        }
        ended = !(n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK));
        break;
    }
    std::string frame;
    bool any = false;
    while (h.busy() && nextFrame(h, frame)) {
        ProbeAnswer a;
        if (!decodeAnswer(frame, a)) {
            ended = true;
            break;
        }
        complete(h, std::move(a));
        any = true;
    }
    if (ended) {
        abandon(h, false);  // the helper ended without answering the rest
    }
    if (any) {
        answered_.notify_all();
    }
}

bool ProbePool::nextFrame(Helper& h, std::string& frame) {
    std::uint32_t size = 0;
    if (h.received.size() < sizeof size) {
        return false;
    }
    std::memcpy(&size, h.received.data(), sizeof size);
    if (h.received.size() < sizeof size + size) {
        return false;
    }
    frame = h.received.substr(sizeof size, size);
    h.received.erase(0, sizeof size + size);
    return true;
}

void ProbePool::dispatch() {
    std::unique_lock<std::mutex> lock(m_);
    for (;;) {
        assign();
        dropEnded();
        if (stop_) {
            return;
        }
        std::vector<pollfd> fds{{wake_[0], POLLIN, 0}};
        std::vector<std::size_t> which;
        auto due = Clock::time_point::max();
        for (std::size_t i = 0; i < helpers_.size(); ++i) {
            if (helpers_[i].busy()) {
                fds.push_back({helpers_[i].channel, POLLIN, 0});
                which.push_back(i);
                due = std::min(due, helpers_[i].due());
            }
        }
        int timeout = -1;
        if (due != Clock::time_point::max()) {
            const auto left =
                std::chrono::duration_cast<std::chrono::milliseconds>(due - Clock::now()).count();
            timeout = static_cast<int>(std::max<long long>(left + 1, 0));
        }
        lock.unlock();
        ::poll(fds.data(), fds.size(), timeout);
        lock.lock();
        if (fds[0].revents != 0) {
            char drain[64];
            while (::read(wake_[0], drain, sizeof drain) > 0) {
            }
        }
        for (std::size_t i = 0; i < which.size(); ++i) {
            Helper& h = helpers_[which[i]];
            if (fds[i + 1].revents != 0 && h.busy() && h.pid >= 0) {
                receive(h);
            }
        }
        const auto now = Clock::now();
        for (Helper& h : helpers_) {
            if (h.busy() && h.pid >= 0 && now >= h.due()) {
                abandon(h, true);
            }
        }
        reap(stuck_);
    }
}

}  // namespace vessa::sal::sys
