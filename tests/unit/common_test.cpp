#include "lin/common.h"

#include <gtest/gtest.h>

#include "support/ScriptedView.h"
#include "support/TestSupport.h"

namespace sys = vessa::sal::sys;
using namespace vessa::target::lin;

namespace {

TEST(QuickRun, AppendsOutputAndReturnsStatusOr255) {
    std::string out = "kept\n";
    {
        auto view = std::make_unique<vessa::test::ScriptedView>();
        view->commands["dmsetup ls --target multipath"] = {true, 1, "mpatha\t(253:0)\n"};
        view->commands["lvdisplay"] = {sys::RunOutcome::NotStarted, 0, ""};
        vessa::test::ScopedView scoped(std::move(view));
        vessa::test::LogCapture log;
        EXPECT_EQ(quickRun("dmsetup", {"ls", "--target", "multipath"}, out), 1);
        EXPECT_EQ(out, "kept\nmpatha\t(253:0)\n");
        for (const char* line : {"Opening pipes", "Executing dmsetup", "Reading output"}) {
            EXPECT_TRUE(log.hasMessage(line)) << line;
        }
        log.clear();
        out.clear();
        EXPECT_EQ(quickRun("lvdisplay", {}, out), 255);
        EXPECT_EQ(quickRun("pvdisplay", {}, out), 255);
        EXPECT_EQ(out, "");
        EXPECT_TRUE(log.hasMessage("Failure, returning"));
    }
    // Live, real programs.
    EXPECT_EQ(quickRun("/bin/sh", {"-c", "printf 'a%.0s' $(seq 1 3000); exit 2"}, out), 2);
    EXPECT_EQ(out, std::string(3000, 'a'));
    EXPECT_EQ(quickRun("vessa-no-such-tool", {}, out), 255);
}

// The inquiry text, and the SCSI address from whichever source answered, each with its log lines.
TEST(ScsiQueries, InquiryAndAddressFromTheViewWithTheirLogLines) {
    auto view = std::make_unique<vessa::test::ScriptedView>();
    sys::IoctlResult ok;
    ok.rc = 0;
    ok.data.assign(96, 0);
    const std::string id = "HP      HSV210          6220";
    std::copy(id.begin(), id.end(), ok.data.begin() + 8);
    view->inquiries["sdc"] = ok;
    view->addresses["sda"].source = sys::ScsiAddressResult::ScsiId;
    view->addresses["sda"].address = "2:0:1:0";
    view->addresses["sdb"] = view->addresses["sda"];
    view->addresses["sdb"].source = sys::ScsiAddressResult::IdLun;
    view->addresses["sdb"].scsiIdErrno = 22;
    view->addresses["sdb"].address = "3:0:4:1";
    vessa::test::ScopedView scoped(std::move(view));

    vessa::test::LogCapture log;
    std::string inquiry;
    getInquiry("/dev/sdc", inquiry, 1);
    EXPECT_EQ(inquiry, id);
    EXPECT_TRUE(log.hasMessage("SGIO IOCTL returned 0 errno=0"));
    getInquiry("sdd", inquiry, 1);
    EXPECT_EQ(inquiry, std::string(28, ' '));
    EXPECT_TRUE(log.hasMessage("SGIO IOCTL returned -1 errno=25"));
    EXPECT_TRUE(log.hasMessage("Inquiry: \"" + std::string(28, ' ') + "\""));

    const struct {
        const char* device;
        const char* address;
        std::vector<std::string> lines;
    } cases[] = {
        {"sda", "2:0:1:0", {"SG_GET_SCSI_ID succeeded!", "SCSI Address: 2:0:1:0"}},
        {"sdb",
         "3:0:4:1",
         {"SG_GET_SCSI_ID returned Invalid argument", "IOCTL succeeded!", "SCSI Address: 3:0:4:1"}},
        {"loop0", "None", {"SG_GET_SCSI_ID returned Inappropriate ioctl for device"}},
    };
    for (const auto& c : cases) {
        log.clear();
        std::string address;
        getScsiAddress(c.device, address);
        EXPECT_EQ(address, c.address);
        std::vector<std::string> m = log.messages();
        EXPECT_EQ(std::vector<std::string>(m.begin() + 1, m.end() - 1), c.lines)
            << c.device;  // no Enter/Exit
    }
}

}  // namespace
