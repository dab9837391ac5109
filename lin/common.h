// What the discovery readers share: running a local tool with its output captured, and the two SCSI
// questions asked of a block device. All three act on the machine the system view shows.
#pragma once

#include <list>
#include <optional>
#include <string>

namespace vessa::target::lin {

// Runs `program` with `args` (the program itself not included), appends its standard output to
// `output` and returns its exit status; 255 when the program could not be started or anything failed.
int quickRun(const std::string& program, const std::list<std::string>& args, std::string& output);

// The content test: what "file -s PATH" prints about `path`, appended to `output`, with the exit status
// as quickRun gives it (and the same log lines). The system view answers it, live without a process.
int contentTest(const std::string& path, std::string& output);

// Opens a device ("sdc" and "/dev/sdc" alike) for the SCSI queries; negative on failure.
int openDevice(const std::string& device);

// The device's 28-character vendor/product/revision text from a standard INQUIRY, untrimmed; 28
// blanks when the device does not answer.
void getInquiry(const std::string& device, std::string& inquiry, unsigned int timeoutSeconds);

// "host:channel:id:lun", or "None".
void getScsiAddress(const std::string& device, std::string& address);

// A sysfs flag attribute's text ("ro", "queue/rotational"): its first line, blanks and tabs trimmed,
// "1" true and "0" false; nullopt for anything else, empty text included.
std::optional<bool> sysfsFlag(const std::string& text);

// Why a device probe could not tell, in words, from its errno: the timeout, missing rights and a path
// left alone have words of their own, anything else the system's text.
std::string probeFailure(int err);

}  // namespace vessa::target::lin
