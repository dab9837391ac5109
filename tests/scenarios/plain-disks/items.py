# Derived in README.md; composed into expected.json by ../compose.py.
HOST = "plain"
ITEMS = [
    item(36, 0, "sda", "/dev/sda", 1048576 * 1024, "",
         [proc_partition("", "sda", 1048576, 8, 0),
          sys_block("", "sda", 8, 0, 2097152, model="QEMU HARDDISK", vendor="ATA     ", revision="2.5+",
                    scsi_level="5", removable=False)],
         inquiry="ATA     QEMU HARDDISK   2.5+", scsi="0:0:0:0", identity=dict(serial="QM00001", wwn="0x5000c5004d2a9f1b", rotational=True, logicalSectorSize=512, physicalSectorSize=4096)),
    item(36, 1, "sdb", "/dev/sdb", 2097152 * 1024, "",
         [proc_partition("", "sdb", 2097152, 8, 16),
          sys_block("", "sdb", 8, 16, 4194304, model="Flash Disk", vendor="Generic ", removable=True)], identity=dict(rotational=False, readOnly=False, logicalSectorSize=512, physicalSectorSize=512)),
]
WITH_REPORT = True
WARNINGS = NO_IN_USE
