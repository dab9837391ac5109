#include "platform/Scsi.h"

#include <fcntl.h>
#include <scsi/scsi.h>
#include <scsi/sg.h>
#include <sys/ioctl.h>
#include <unistd.h>
#include <cerrno>
#include <cstring>

namespace vessa::sal::scsi {

std::array<std::uint8_t, 6> inquiryCommand() {
    return {0x12, 0x00, 0x00, 0x00, 0x60, 0x00};
}

std::array<std::uint8_t, 10> readCapacity10Command() {
    return {0x25, 0, 0, 0, 0, 0, 0, 0, 0, 0};
}

std::array<std::uint8_t, 16> readCapacity16Command() {
    return {0x9E, 0x10, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, static_cast<std::uint8_t>(kReadCapacity16Length),
            0,    0};
}

std::string inquiryText(const std::vector<std::uint8_t>& answer) {
    std::string text(kInquiryTextLength, ' ');
    for (std::size_t i = 0; i < kInquiryTextLength && 8 + i < answer.size(); ++i) {
        const std::uint8_t b = answer[8 + i];
        text[i] = (b >= 0x20 && b < 0x7f) ? static_cast<char>(b) : ' ';
    }
    return text;
}

namespace {

std::uint32_t bigEndian32(const std::vector<std::uint8_t>& data, std::size_t offset) {
    if (data.size() < offset + 4) {
        return 0;
    }
    return (std::uint32_t{data[offset]} << 24) | (std::uint32_t{data[offset + 1]} << 16) |
           (std::uint32_t{data[offset + 2]} << 8) | std::uint32_t{data[offset + 3]};
}

}  // namespace

std::uint32_t readCapacity10BlockSize(const std::vector<std::uint8_t>& answer) {
    return bigEndian32(answer, 4);
}

std::uint32_t readCapacity16BlockSize(const std::vector<std::uint8_t>& answer) {
    return bigEndian32(answer, 8);
}

std::string idLunAddress(std::uint32_t word) {
    return std::to_string((word >> 24) & 0xff) + ":" + std::to_string((word >> 16) & 0xff) + ":" +
           std::to_string(word & 0xff) + ":" + std::to_string((word >> 8) & 0xff);
}

int openDevice(const std::string& device) {
    const std::string path = device.compare(0, 4, "/dev") == 0 ? device : "/dev/" + device;
    return ::open(path.c_str(), O_RDWR | O_DIRECT | O_CLOEXEC);
}

sys::IoctlResult readFromDevice(int fd, const std::uint8_t* command, std::size_t commandLength,
                                std::size_t dataLength, unsigned int timeoutSeconds) {
    sys::IoctlResult result;
    result.data.assign(dataLength, 0);
    std::uint8_t sense[kSenseLength] = {};
    std::uint8_t cdb[16] = {};
    std::memcpy(cdb, command, commandLength < sizeof cdb ? commandLength : sizeof cdb);

    sg_io_hdr_t hdr;
    std::memset(&hdr, 0, sizeof hdr);
    hdr.interface_id = 'S';
    hdr.dxfer_direction = SG_DXFER_FROM_DEV;
    hdr.cmd_len = static_cast<unsigned char>(commandLength);
    hdr.mx_sb_len = sizeof sense;
    hdr.dxfer_len = static_cast<unsigned int>(dataLength);
    hdr.dxferp = result.data.data();
    hdr.cmdp = cdb;
    hdr.sbp = sense;
    hdr.timeout = timeoutSeconds * 1000u;
    errno = 0;
    result.rc = ::ioctl(fd, SG_IO, &hdr);
    result.err = errno;
    return result;
}

sys::ScsiAddressResult address(int fd) {
    sys::ScsiAddressResult result;
    struct sg_scsi_id id;
    std::memset(&id, 0, sizeof id);
    errno = 0;
    if (::ioctl(fd, SG_GET_SCSI_ID, &id) >= 0) {
        result.source = sys::ScsiAddressResult::ScsiId;
        result.address = std::to_string(id.host_no) + ":" + std::to_string(id.channel) + ":" +
                         std::to_string(id.scsi_id) + ":" + std::to_string(id.lun);
        return result;
    }
    result.scsiIdErrno = errno;
    std::uint32_t idlun[2] = {0, 0};
    if (::ioctl(fd, SCSI_IOCTL_GET_IDLUN, idlun) >= 0) {
        result.source = sys::ScsiAddressResult::IdLun;
        result.address = idLunAddress(idlun[0]);
    }
    return result;
}

}  // namespace vessa::sal::scsi
