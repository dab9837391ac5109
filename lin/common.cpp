#include "lin/common.h"

#include <cerrno>
#include <cstring>
#include <exception>

#include "platform/Log.h"
#include "platform/Scsi.h"
#include "platform/view/SystemView.h"

namespace vessa::target::lin {

std::string probeFailure(int err) {
    return err == ETIMEDOUT ? "the device did not answer in time"
           : err == EACCES  ? "not running as root"
           : err == ENXIO   ? "its path is not running"
                            : std::strerror(err);
}

namespace {
constexpr const char* kUnit = "lin/common.cpp";

// A command through the view, as `runs` makes it, with the log of a program run.
template <class Run>
int logged(const std::string& program, std::string& output, Run runs) {
    VESSA_TRACE(kUnit, "quickRun");
    try {
        // The view starts the child with an open, never-written input pipe, its output on a second
        // pipe and no error stream, and reads the output to its end (or answers from a recording).
        VESSA_LOG << "Opening pipes";
        VESSA_LOG << "Executing " << program;
        int status = 0;
        std::string text;
        const sal::sys::RunOutcome outcome = runs(text, status);
        if (outcome != sal::sys::RunOutcome::Exited) {
            if (outcome == sal::sys::RunOutcome::TimedOut) {
                VESSA_LOG << program << " timed out and was ended";
            } else if (outcome == sal::sys::RunOutcome::TooMuchOutput) {
                VESSA_LOG << program << " wrote more output than is read and was ended";
            }
            VESSA_LOG << "Failure, returning";
            return 255;
        }
        VESSA_LOG << "Reading output";
        output += text;
        return status;
    } catch (const std::exception&) {
        VESSA_LOG << "Failure, returning";
        return 255;
    }
}

}  // namespace

int quickRun(const std::string& program, const std::list<std::string>& args, std::string& output) {
    return logged(program, output, [&](std::string& text, int& status) {
        return sal::sys::current().run(program, args, text, status);
    });
}

int contentTest(const std::string& path, std::string& output) {
    return logged("file", output, [&](std::string& text, int& status) {
        return sal::sys::current().describeContent(path, text, status);
    });
}

int openDevice(const std::string& device) {
    return sal::scsi::openDevice(device);
}

void getInquiry(const std::string& device, std::string& inquiry, unsigned int timeoutSeconds) {
    VESSA_TRACE(kUnit, "getInquiry");
    sal::sys::IoctlResult r = sal::sys::current().scsiInquiry(device, timeoutSeconds);
    VESSA_LOG << "SGIO IOCTL returned " << r.rc << " errno=" << r.err;
    inquiry = sal::scsi::inquiryText(r.data);
    VESSA_LOG << "Inquiry: \"" << inquiry << "\"";
}

void getScsiAddress(const std::string& device, std::string& address) {
    VESSA_TRACE(kUnit, "getScsiAddress");
    sal::sys::ScsiAddressResult r = sal::sys::current().scsiAddress(device);
    if (r.source == sal::sys::ScsiAddressResult::ScsiId) {
        VESSA_LOG << "SG_GET_SCSI_ID succeeded!";
        address = r.address;
        VESSA_LOG << "SCSI Address: " << address;
        return;
    }
    VESSA_LOG << "SG_GET_SCSI_ID returned " << std::strerror(r.scsiIdErrno);
    if (r.source == sal::sys::ScsiAddressResult::None) {
        address = "None";
        return;
    }
    VESSA_LOG << "IOCTL succeeded!";
    address = r.address;
    VESSA_LOG << "SCSI Address: " << address;
}

std::optional<bool> sysfsFlag(const std::string& text) {
    const std::string line = text.substr(0, text.find('\n'));
    const std::string::size_type b = line.find_first_not_of(" \t");
    if (b == std::string::npos) {
        return std::nullopt;
    }
    const std::string flag = line.substr(b, line.find_last_not_of(" \t") - b + 1);
    if (flag != "0" && flag != "1") {
        return std::nullopt;
    }
    return flag == "1";
}

}  // namespace vessa::target::lin
