// The system view: the one door through which discovery learns facts about the machine.
//
// Live (root "/"), files are read, commands run and ioctls issued on this machine. With any other
// root R (replay), every path is taken under R, nothing is run and no ioctl is issued: answers come
// from the recordings of a snapshot:
//
//   R/<host path>                          files, directories and symbolic links as discovery sees them
//   R/.vessa/commands/<command line>       standard output of a command; the command line is the program
//                                          and its arguments joined by single blanks, "%" written "%25"
//                                          and "/" written "%2F"; "<same name>.status" holds the exit
//                                          status in decimal (absent: 0). No recording: the program
//                                          cannot be started.
//   R/.vessa/ioctl/<kernel name>.<query>   the kernel name with "/" written "!": "inquiry" (raw INQUIRY
//                                          answer; absent: the ioctl failed), "scsi_address" (text
//                                          h:c:t:l; absent: both address ioctls failed),
//                                          "read_capacity" (block size in decimal; absent: 0)
//                                          Two more answers about device nodes, for what stat cannot
//                                          tell from a snapshot file: "size" (capacity in bytes) and
//                                          "block_size" (st_blksize); when "size" is present, the node
//                                          /dev/<name> is a block device of that capacity.
//                                          "exclusive": the exclusive-open test, "free", "busy" or
//                                          "error <errno>" (absent: not tested)
//                                          "signatures": what lies on the device at rest
//                                          (platform/view/Signatures.h; absent: not read)
//   R/dev/<name> non-empty                 the device node can be read (the mount-table read test)
//   R/.vessa/euid                          the effective user id the snapshot was taken with
//                                          (absent: 0)
//   R/proc/self/mountinfo, R/proc/swaps    the kernel's mount and swap tables, as files
//   R/etc/hostname                         the machine's name (first line)
//
// Paths given to the view and paths the library reports are always host paths (/dev/sda), never R/...
//
// The view is process-wide state (with the log, the only such state of the library): set it once,
// before discovery starts, through useRoot() or install(). Tests hand a scripted view to install().
#pragma once

#include <cstdint>
#include <list>
#include <memory>
#include <string>
#include <vector>

#include "platform/Export.h"
#include "platform/Process.h"
#include "platform/view/Signatures.h"

namespace vessa::sal::sys {

struct DirEntry {
    enum Type { Unknown = 0, File, Directory, Link, BlockDevice, CharDevice, Other };
    std::string name;
    Type type = Unknown;
};

struct FileStatus {
    bool isDirectory = false;
    bool isBlockDevice = false;
    bool isRegular = false;
    // Bytes: a block device's capacity (BLKGETSIZE64), otherwise st_size.
    long long size = 0;
    // The preferred I/O block size that stat reports (st_blksize).
    long long blockSize = 0;
};

struct FsStatus {
    long long type = 0;
    long long bsize = 0;
    unsigned long long blocks = 0;
    unsigned long long bfree = 0;
    unsigned long long bavail = 0;
    unsigned long long files = 0;
    unsigned long long ffree = 0;
    long long namelen = 0;
};

// One SCSI command's outcome as the SG_IO ioctl reports it.
struct IoctlResult {
    int rc = -1;  // the ioctl's return value
    int err = 0;  // errno after the call
    std::vector<std::uint8_t> data;
};

// The kernel's own in-use test: a device that another holder has claimed (a mount, a swap, a mapped
// device, a program that opened it exclusively) refuses an exclusive open with EBUSY.
struct ExclusiveOpen {
    enum Result { Free, Busy, Failed };
    Result result = Failed;
    int err = 0;  // errno of a failed open (EACCES when not privileged, ENOENT when not recorded)
};

// Which of the two address queries answered, and the address they gave.
struct ScsiAddressResult {
    enum Source { None = 0, ScsiId, IdLun };
    Source source = None;
    int scsiIdErrno = 0;  // errno of the failed SG_GET_SCSI_ID (when source is not ScsiId)
    std::string address;  // "h:c:t:l", empty when source is None
};

enum class RunOutcome { Exited, NotStarted, TimedOut, TooMuchOutput };

// The timeout of a READ CAPACITY command, in seconds.
constexpr unsigned int kReadCapacityTimeoutSeconds = 5;

// What a run is going to ask of one device, told to the view before it asks (probeAhead), so that a
// view can put the questions to the device ahead of the run.
struct DeviceProbes {
    std::string device;       // kernel name (sda, cciss/c0d0)
    bool scsi = false;        // the SCSI INQUIRY and the SCSI address
    bool exclusive = false;   // the exclusive-open test
    std::string contentPath;  // the path whose content will be described; "" for none
    bool signatures = false;  // the signatures at rest
    bool capacity = false;    // READ CAPACITY (10), `device` being the node's path
    // A partition's whole disk (kernel name), "" for a whole device. The kernel refuses an exclusive
    // open of a disk while one of its partitions is open exclusively, and the other way round: the
    // exclusive-open tests of a disk and its partitions are never made at the same time.
    std::string disk{};
};

class VESSA_API View {
  public:
    virtual ~View();

    // "/" when live.
    virtual const std::string& root() const = 0;
    bool isLive() const { return root() == "/"; }

    // Whole content of a file; false when it cannot be opened.
    virtual bool readFile(const std::string& path, std::string& content) = 0;
    // The same for a path that a listing of its directory has just shown to be a regular file (a view
    // may then take a shorter way to it).
    virtual bool readListedFile(const std::string& path, std::string& content) {
        return readFile(path, content);
    }
    // Whether listing a file's directory and then reading it as listed costs less than reading it
    // unlisted (a snapshot, where an unlisted file is looked at before it is opened).
    virtual bool prefersListedReads() const { return false; }
    // readFile and listDirectory may be called from a second thread while this one uses the view.
    virtual bool allowsConcurrentReads() const { return false; }
    // run may be called from several threads at once.
    virtual bool allowsConcurrentCommands() const { return false; }
    // Entries of a directory, without "." and "..", sorted by name (byte order) so that a live run and
    // the replay of its capture see the same order.
    virtual bool listDirectory(const std::string& path, std::vector<DirEntry>& entries) = 0;
    // The types of the entries of `directory` whose lower-cased name equals `loweredName`; false when
    // the directory cannot be listed. (A listing, then a scan; a run scope answers it from an index.)
    virtual bool entryTypes(const std::string& directory, const std::string& loweredName,
                            std::vector<DirEntry::Type>& types);
    // stat() of a path (following links); false when it does not exist.
    virtual bool status(const std::string& path, FileStatus& st) = 0;
    // Target of a symbolic link, at most `limit` bytes; false when the path is not a link.
    virtual bool readLink(const std::string& path, std::string& target, std::size_t limit = 512) = 0;
    // statfs64 of a mounted directory; false on failure.
    virtual bool fsStatus(const std::string& path, FsStatus& st) = 0;
    // The mount-table read test: the device opens for reading and a first line of up to 4096 bytes
    // can be read from it.
    virtual bool deviceReadable(const std::string& path) = 0;
    // The local machine's name.
    virtual std::string hostName() = 0;

    // Runs `program` with `args` to its end, appending its standard output to `output`; sets `status`
    // to its exit status when the outcome is Exited. NotStarted: the program could not be started (or,
    // in replay, has no recording). TimedOut / TooMuchOutput: the live run overran the command limits
    // and was ended; nothing is appended then.
    virtual RunOutcome run(const std::string& program, const std::list<std::string>& args,
                           std::string& output, int& status) = 0;

    // The content test of a device: what "file -s PATH" prints about it, with the same outcome and
    // status as running that command would give (and recorded, captured and replayed as that command).
    // Here: that command is run; the live view answers it from the same magic database in process.
    virtual RunOutcome describeContent(const std::string& path, std::string& output, int& status);

    // The questions a run will put to devices (the content test, the SCSI queries, the exclusive
    // open), in the order it will put them; `inquiryTimeout` is the run's INQUIRY timeout in seconds
    // (0: not known yet, the one told before holds).
    // A view may ask them ahead; the answers are the same as asked in order. Here: nothing happens.
    virtual void probeAhead(const std::vector<DeviceProbes>& plan, unsigned int inquiryTimeout);
    // A run begins or ends (scopes nest; only the outermost counts). Answers a view kept for one run
    // are dropped at its end, and whatever it started for the run is ended.
    virtual void runStarts() {}
    virtual void runEnds() {}
    // The devices that did not answer a question in time since the last call, one warning a device,
    // in words naming it; their answers counted as failures. Here: none.
    virtual std::vector<std::string> takeProbeWarnings() { return {}; }

    // SCSI commands on a device given by kernel name (sda, cciss/c0d0) or path (/dev/sda).
    // INQUIRY: the data buffer (96 bytes live) with the ioctl's return value and errno.
    virtual IoctlResult scsiInquiry(const std::string& device, unsigned int timeoutSeconds) = 0;
    // SG_GET_SCSI_ID, else SCSI_IOCTL_GET_IDLUN. A replayed address counts as an SG_GET_SCSI_ID answer.
    virtual ScsiAddressResult scsiAddress(const std::string& device) = 0;
    // Block size from READ CAPACITY(10) (sixteen false) or (16); 0 when the device does not answer
    // within kReadCapacityTimeoutSeconds.
    virtual unsigned int readCapacityBlockSize(const std::string& device, bool sixteen) = 0;

    // Opens the device node (kernel name or path) read-only and exclusively, and closes it at once.
    virtual ExclusiveOpen exclusiveOpen(const std::string& device) = 0;
    // The signatures on the device (kernel name or path) at rest. Here: not read.
    virtual SignatureProbe readSignatures(const std::string& device);
    // Both of the above for one device, `contentPath` being its node: what readSignatures(device) gives,
    // with what describeContent(contentPath, ...) gives in `outcome`, `output` and `status`. A view that
    // reads devices reads the device once for both. Here: the two, one after the other.
    virtual SignatureProbe readSignaturesWithContent(const std::string& device,
                                                     const std::string& contentPath, RunOutcome& outcome,
                                                     std::string& output, int& status);
    // Whether the machine was looked at with the rights to open devices and run the volume tools
    // (live: the effective user is root; replay: as the snapshot records, root when it does not say).
    virtual bool privileged() = 0;
};

// Symbolic links inside a snapshot are followed under its root: an absolute target /x means R/x.

// The view in use (live "/" until changed); on a thread inside a RunScope, that scope's view.
VESSA_API View& current();
// Replay the snapshot at `root`; "/" means live.
VESSA_API void useRoot(const std::string& root);
// Use `view` (tests, capture). The previous view is released.
VESSA_API void install(std::unique_ptr<View> view);

// The limits of every program that the live view runs (default: 120 s, 64 MiB of output). Set once,
// like the view, before discovery starts.
VESSA_API void setCommandLimits(const exec::RunLimits& limits);
VESSA_API exec::RunLimits commandLimits();

// A variable that every program the live view runs finds in its environment, over the caller's own
// value; an empty value drops the setting (the caller's own value applies again). The agent client
// puts its SSH configuration file here so that the launcher it starts reaches hosts the same way.
// The process environment itself is never changed (setenv is not safe while other threads run).
VESSA_API void setCommandVariable(const std::string& name, const std::string& value);
// The caller's environment with those settings applied: what a program run by the view receives.
VESSA_API exec::EnvVars commandEnvironment();

// The recording name of a command line: program and arguments joined by blanks, "%" -> "%25",
// "/" -> "%2F".
VESSA_API std::string commandFileName(const std::string& program, const std::list<std::string>& args);
// The recording name of a device's ioctl answer: kernel name with "/" -> "!", "." and the query.
VESSA_API std::string ioctlFileName(const std::string& device, const std::string& query);
// The kernel name of a device given by name or path: a leading "/dev/" removed.
VESSA_API std::string kernelName(const std::string& device);
// A kernel name as /sys/block spells it ("cciss/c0d0" -> "cciss!c0d0"), and back.
VESSA_API std::string sysfsName(std::string kernelName);
VESSA_API std::string fromSysfsName(std::string sysfsName);

// The two standard views.
VESSA_API std::unique_ptr<View> makeLiveView();
VESSA_API std::unique_ptr<View> makeReplayView(const std::string& root);

}  // namespace vessa::sal::sys
