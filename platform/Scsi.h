// SCSI commands as bytes: building command blocks and decoding answers needs no device, so it is
// tested on recorded buffers. The Linux transport (SG_IO and the two address ioctls) is separate and
// thin; only the live system view calls it.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/view/SystemView.h"

namespace vessa::sal::scsi {

constexpr std::size_t kInquiryLength = 96;
constexpr std::size_t kInquiryTextLength = 28;  // vendor 8, product 16, revision 4
constexpr std::size_t kSenseLength = 128;

// INQUIRY, standard data, allocation length 96: 12 00 00 00 60 00.
std::array<std::uint8_t, 6> inquiryCommand();
// READ CAPACITY(10): 25 00 .. 00.
std::array<std::uint8_t, 10> readCapacity10Command();
// READ CAPACITY(16): SERVICE ACTION IN(16) 9E, action 10, allocation length 32.
std::array<std::uint8_t, 16> readCapacity16Command();
constexpr std::size_t kReadCapacity10Length = 8;
constexpr std::size_t kReadCapacity16Length = 32;

// Bytes 8..35 of an INQUIRY answer; every byte that is not printable (NUL included) becomes a blank,
// and a short answer is padded with blanks. Always 28 characters; nothing is trimmed.
std::string inquiryText(const std::vector<std::uint8_t>& answer);

// The logical block length of a READ CAPACITY answer (big-endian); 0 when the answer is too short.
std::uint32_t readCapacity10BlockSize(const std::vector<std::uint8_t>& answer);
std::uint32_t readCapacity16BlockSize(const std::vector<std::uint8_t>& answer);

// SCSI_IOCTL_GET_IDLUN packs the id in bits 0-7, the LUN in 8-15, the channel in 16-23 and the host
// in 24-31 of its first word. Returns "host:channel:id:lun".
std::string idLunAddress(std::uint32_t word);

// --- Linux transport ---------------------------------------------------------------------------

// Opens a device for the SCSI queries: "/dev/" is put in front unless the name's first four
// characters are "/dev"; O_RDWR | O_DIRECT. Returns the descriptor or a negative value.
int openDevice(const std::string& device);

// Sends a command that reads `dataLength` bytes from the device through SG_IO, with a timeout of
// timeoutSeconds * 1000 ms (unsigned arithmetic, so huge values wrap). The data buffer is returned
// whatever the ioctl's result, zeroed where the device wrote nothing.
sys::IoctlResult readFromDevice(int fd, const std::uint8_t* command, std::size_t commandLength,
                                std::size_t dataLength, unsigned int timeoutSeconds);

// SG_GET_SCSI_ID, then SCSI_IOCTL_GET_IDLUN.
sys::ScsiAddressResult address(int fd);

}  // namespace vessa::sal::scsi
