# Derived in README.md; composed into expected.json by ../compose.py.
HOST = "plain"
ITEMS = [
    item(36, 0, "sda", "/dev/sda", 1048576 * 1024, "",
         [proc_partition("", "sda", 1048576, 8, 0),
          sys_block("", "sda", 8, 0, 2097152, model="QEMU HARDDISK", vendor="ATA     ", revision="2.5+",
                    scsi_level="5", removable=False)],
         unknown=["whether it is mounted (the mount table could not be read)",
                  "whether it is active swap (the swap table could not be read)",
                  "whether anything holds it open (its path is not running)",
                  "its signatures (its path is not running)"]),
    item(36, 1, "sdb", "/dev/sdb", 2097152 * 1024, "",
         [proc_partition("", "sdb", 2097152, 8, 16),
          sys_block("", "sdb", 8, 16, 4194304, model="Flash Disk", vendor="Generic ", removable=True)]),
]
WARNINGS = NO_IN_USE[:2] + [
    "sda: its path is not running (state transport-offline): it was sent no SCSI command and counts as not seen"]
