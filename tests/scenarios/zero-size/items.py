# Derived in README.md; composed into expected.json by ../compose.py.
HOST = "lab7"
ITEMS = [
    item(36, 0, "sda", "/dev/sda", 0, "M",
         [proc_partition("", "sda", 0, 8, 0), sys_block("", "sda", 8, 0, 0, removable=True)]),
    item(36, 1, "sdb", "/dev/sdb", 1048576 * 1024, "",
         [proc_partition("", "sdb", 1048576, 8, 16), sys_block("", "sdb", 8, 16, 2097152, removable=False)]),
    item(36, 2, "sdc", "/dev/sdc", 2097152 * 1024, "",
         [proc_partition("", "sdc", 2097152, 8, 32), sys_block("", "sdc", 8, 32, 4194304, removable=False)]),
]
WARNINGS = ["file could not be run: devices holding a file system without a partition table may not be marked "
            "partitioned"] + NO_IN_USE
