#include "lin/common.h"

#include <gtest/gtest.h>

#include "support/ScriptedView.h"
#include "support/TestSupport.h"

namespace sys = vessa::sal::sys;
using namespace vessa::target::lin;

namespace {

// Real programs: the output is appended, the status passed on, a program that cannot start is 255. (What
// a run through a snapshot's recordings logs is in every golden log.)
TEST(QuickRun, AppendsOutputAndReturnsStatusOr255) {
    std::string out = "kept\n";
    EXPECT_EQ(quickRun("/bin/sh", {"-c", "printf 'a%.0s' $(seq 1 3000); exit 2"}, out), 2);
    EXPECT_EQ(out, "kept\n" + std::string(3000, 'a'));
    EXPECT_EQ(quickRun("vessa-no-such-tool", {}, out), 255);
}

// The SCSI address from the older ioctl when the newer one fails, with its log lines; a snapshot
// replays only the newer one's answer, which the golden logs show with the inquiry's lines.
TEST(ScsiQueries, AddressFromTheOlderIoctlWithItsLogLines) {
    auto view = std::make_unique<vessa::test::ScriptedView>();
    view->addresses["sdb"].source = sys::ScsiAddressResult::IdLun;
    view->addresses["sdb"].scsiIdErrno = 22;
    view->addresses["sdb"].address = "3:0:4:1";
    vessa::test::ScopedView scoped(std::move(view));
    vessa::test::LogCapture log;
    std::string address;
    getScsiAddress("sdb", address);
    EXPECT_EQ(address, "3:0:4:1");
    const std::vector<std::string> m = log.messages();
    EXPECT_EQ(std::vector<std::string>(m.begin() + 1, m.end() - 1),
              (std::vector<std::string>{"SG_GET_SCSI_ID returned Invalid argument", "IOCTL succeeded!",
                                        "SCSI Address: 3:0:4:1"}));  // between Enter and Exit
}

}  // namespace
