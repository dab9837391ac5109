// Device probes on helper processes, each with a deadline.
//
// A probe (a SCSI command, an open of a device, a read of its first bytes) can sleep in the kernel for
// as long as the transport takes to give up on a path that does not answer: seconds to minutes, and
// uninterruptibly, so that neither the thread that issued it nor its process can be stopped meanwhile.
// The pool therefore issues every probe in a helper process of its own making (forked, so it answers
// exactly as this process would). A helper whose probe passes its deadline is abandoned: it is sent
// SIGKILL (which takes effect when its kernel call returns), the probe counts as unanswered, the
// device is named in a warning and is not asked anything again for the life of the pool. The caller
// never waits for a device longer than one deadline, and can exit whatever the helper is doing.
//
// Probes asked ahead (ahead()) are worked off in that order by up to `helpers` processes; ask() takes
// the answer of one probe, putting it first when it was not asked ahead. Each probe is made at most
// once: a second ask gets the first answer (a run takes the machine not to change while it looks).
//
// The exclusive-open tests of a disk and of its partitions (those asked ahead with `disk` say which
// disk they belong to) go to one helper, one after another: made at the same time by two helpers,
// each would find the device busy because of the other.
//
// A helper does nothing but the probes: it closes every descriptor it inherited but its channel (so
// that it can hold no pipe, terminal or lock file of the caller), writes nothing to the caller's
// streams, and ends when the pool closes its channel or the thread that started it ends.
//
// Thread-safe. The pool runs one thread of its own that hands out work and keeps the deadlines.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include "platform/view/SystemView.h"

namespace vessa::sal::sys {

enum class ProbeKind : std::uint8_t {
    Inquiry,
    Address,
    Capacity10,
    Capacity16,
    Content,
    Exclusive,
    Signatures
};

struct ProbeRequest {
    ProbeKind kind = ProbeKind::Inquiry;
    std::string device;               // kernel name or path, as the view was asked
    unsigned int timeoutSeconds = 1;  // the probe's own timeout; its deadline adds kGrace
    std::string disk{};               // Exclusive: the partition's whole disk, "" for a whole device
    // Signatures: the path of a content test made with the probe (its answer is then also that content
    // test's), "" for none.
    std::string content{};
};

// One probe's answer; the field of its kind is set. `answered` false: the probe passed its deadline,
// or could not be made at all; the fields then hold what a device that does not answer gives.
struct ProbeAnswer {
    bool answered = false;
    IoctlResult ioctl;                            // Inquiry
    ScsiAddressResult address;                    // Address
    unsigned int blockSize = 0;                   // Capacity10, Capacity16
    RunOutcome outcome = RunOutcome::NotStarted;  // Content (and Signatures with one): the test as a command
    int status = 0;
    std::string text;
    ExclusiveOpen exclusive;    // Exclusive
    SignatureProbe signatures;  // Signatures
};

class ProbePool {
  public:
    // Runs one probe; called in a helper process only.
    using Prober = std::function<ProbeAnswer(const ProbeRequest&)>;
    static constexpr std::chrono::milliseconds kGrace{500};
    // How long finish() waits for the busy helpers it kills to end.
    static constexpr std::chrono::milliseconds kEndWait{200};

    ProbePool(Prober prober, std::size_t helpers);
    ~ProbePool();
    // Ends the pool's thread and its idle helpers, kills busy ones and waits up to kEndWait for them to
    // end, and returns the helpers abandoned now or earlier that have not ended yet (each in a call
    // that does not return): the caller reaps them later (reap()). Nothing may be asked after.
    std::vector<pid_t> finish();
    ProbePool(const ProbePool&) = delete;
    ProbePool& operator=(const ProbePool&) = delete;

    // Forks every helper now, on the calling thread. A process forked while other threads of its parent
    // run inherits the locks they held at that moment (the allocator's among them) held, and can wait on
    // one of them for ever: a run starts its helpers before it starts threads of its own. A helper that
    // is abandoned later is replaced as the probes need it.
    void start();
    void ahead(const std::vector<ProbeRequest>& requests);
    ProbeAnswer ask(const ProbeRequest& request);
    // Warnings since the last call, one per device that did not answer, and one when helpers could
    // not be started.
    std::vector<std::string> takeWarnings();
    // Reaps those of `pids` that have ended, without waiting, and removes them from the list.
    static void reap(std::vector<pid_t>& pids);

  private:
    // A helper works off the probes sent to it in order; the first unanswered one has been running
    // since the answer before it came (or since it was sent, to an idle helper).
    struct Helper {
        pid_t pid = -1;
        int channel = -1;
        std::deque<ProbeRequest> sent;
        std::chrono::steady_clock::time_point since;
        std::string received;
        bool busy() const { return !sent.empty(); }
        std::chrono::steady_clock::time_point due() const;
    };
    // Probes sent to one helper before its earlier ones are answered: fewer wake-ups for the pool's
    // thread and the helpers, while a probe waiting behind one that hangs is sent again elsewhere.
    static constexpr std::size_t kDepth = 8;

    void dispatch();
    void assign();
    void dropEnded();
    bool spawn(std::string& why);
    void receive(Helper& h);
    void complete(Helper& h, ProbeAnswer answer);
    // The probe behind a parsed frame, if a whole one has been received.
    bool nextFrame(Helper& h, std::string& frame);
    // `late`: it passed its deadline; otherwise it ended without an answer.
    void abandon(Helper& h, bool late);
    void fail(const ProbeRequest& r);
    // The disk whose exclusive-open tests `r` must not overlap ("" when `r` is no such test).
    std::string exclusiveGroup(const ProbeRequest& r) const;
    void released(const ProbeRequest& r);
    void wake();
    bool startThread();

    const Prober prober_;
    const std::size_t most_;
    const pid_t self_;
    int devNull_ = -1;
    int wake_[2] = {-1, -1};

    mutable std::mutex m_;
    std::condition_variable answered_;
    std::deque<ProbeRequest> urgent_, ahead_;
    // Signature probes asked ahead with a content test and not yet sent, by either probe's key: asked
    // for first, either goes with the other.
    std::unordered_map<std::string, ProbeRequest> together_;
    std::map<std::string, ProbeAnswer> answers_;  // by key()
    std::set<std::string> inFlight_;
    std::map<std::string, std::string> diskOf_;  // partition's kernel name -> its disk's, as asked ahead
    // Per disk with exclusive-open tests in flight: the helper they were sent to, and how many.
    std::map<std::string, std::pair<pid_t, std::size_t>> exclusiveAt_;
    std::map<std::string, std::string> silent_;  // kernel name -> the probe it did not answer
    std::vector<std::string> warnings_;
    std::string cannotStart_;  // why helpers could not be started, once said
    std::vector<Helper> helpers_;
    std::vector<pid_t> stuck_;
    bool stop_ = false;
    bool finished_ = false;
    bool threadFailed_ = false;
    std::thread thread_;
};

}  // namespace vessa::sal::sys
