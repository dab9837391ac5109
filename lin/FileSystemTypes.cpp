#include "lin/FileSystemTypes.h"

namespace vessa::target::lin {

namespace {

const FileSystemType kTypes[] = {
    {0xadf5, "ADFS"},        {0xadff, "AFFS"},         {0x42465331, "BEFS"},      {0xFF534D42, "CIFS"},
    {0x73757245, "CODA"},    {0x28cd3d45, "CRAMFS"},   {0x1373, "DEVFS"},         {0xEF51, "EXT2_OLD"},
    {0xEF53, "EXT2/3"},      {0xf995e849, "HPFS"},     {0x958458f6, "HUGETLBFS"}, {0x9660, "ISOFS"},
    {0x72b6, "JFFS2"},       {0x137F, "MINIX"},        {0x138F, "MINIX_2"},       {0x2468, "MINIX2"},
    {0x2478, "MINIX2_2"},    {0x4d5a, "MINIX3"},       {0x4d44, "MSDOS"},         {0x564c, "NCP"},
    {0x6969, "NFS"},         {0x5346544e, "NTFS_SB"},  {0x9fa1, "OPENPROM"},      {0x9fa0, "PROC"},
    {0x002f, "QNX4"},        {0x52654973, "REISERFS"}, {0x7275, "ROMFS"},         {0x517B, "SMB"},
    {0x012FF7B6, "SYSV2"},   {0x012FF7B5, "SYSV4"},    {0x01021994, "TMPFS"},     {0x15013346, "UDF"},
    {0x00011954, "UFS"},     {0x9fa2, "USBDEVICE"},    {0xa501FCF5, "VXFS"},      {0x012FF7B4, "XENIX"},
    {0x012FD16D, "_XIAFS"},  {0x58465342, "XFS"},      {0x9123683E, "BTRFS"},     {0x3153464a, "JFS"},
    {0x62656572, "SYSFS"},   {0x1cd1, "DEVPTS"},       {0x794c7630, "OVERLAYFS"}, {0x65735546, "FUSE"},
    {0xF2F52010, "F2FS"},    {0x2011BAB0, "EXFAT"},    {0xCA451A4E, "BCACHEFS"},  {0x27e0eb, "CGROUP"},
    {0x63677270, "CGROUP2"}, {0x858458f6, "RAMFS"},    {0x73717368, "SQUASHFS"},  {0, nullptr},
};

}  // namespace

std::string fileSystemName(long long magic) {
    for (const FileSystemType* t = kTypes; t->name != nullptr; ++t) {
        if (t->magic == magic) {
            return t->name;
        }
    }
    return "";
}

const FileSystemType* fileSystemTypes() {
    return kTypes;
}

}  // namespace vessa::target::lin
