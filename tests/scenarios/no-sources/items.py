# Derived in README.md; composed into expected.json by ../compose.py.
HOST = "localhost"
ITEMS = []
WARNINGS = [NO_SYS_BLOCK, "/etc/mtab could not be read: mounted devices may be missing their exclusions",
            "pvdisplay could not be run: volume-group members may be missing",
            "lvdisplay could not be run: logical volumes may be missing",
            "vgdisplay could not be run: volume-group members may be missing"] + NO_IN_USE[:2]
