#!/usr/bin/env python3
"""Composes a scenario's expected.json (and expected.xml) from its items.py.

items.py lists the items the discovery must report and, per item, the records whose properties it carries
(a /proc/partitions entry, an mtab entry, a logical volume...). The property tables and the report format
are stated here once, from the rules, independently of the library. Run: compose.py [NAME...]
"""
import json
import os
import runpy
import sys
from pathlib import Path

LETTERS = "AGIMPSUVWZ"
WORDS = ["boot", "no signature", "reserved", "empty", "partitioned or holds a file system", "system", "user",
         "volume group member", "swap", "excluded by listing"]
BLANK_INQUIRY = " " * 28


def record(category, rows, *values):
    """The properties of one record: `rows` are (key, label, description), `values` their values in order."""
    assert len(rows) == len(values), category
    text = lambda v: ("true" if v else "false") if isinstance(v, bool) else str(v)
    return {key: {"value": text(v), "displayName": label, "category": category, "description": description}
            for (key, label, description), v in zip(rows, values)}


PROC = [
    ("Name", "Name", "Name pulled from the /proc/partitions entry for this item"),
    ("Blocks", "Blocks", "Number of blocks the item contains."),
    ("MajorNumber", "Major Number", "System assigned major number.  Typically indicates the bus type of the device."),
    ("MinorNumber", "Minor Number",
     "System assigned minor number.  Typically indicates the index of the device on the bus."),
    ("Valid", "Valid Entry", "If true, then this represents a valid entry in the /proc/partitions file."),
]
SYS = [
    ("SysBlockName", "Name", "Name of the connected /sys/block entry."),
    ("SysBlockMajorNumber", "Major Number", "Major Number as found in /sys/block/<dev>/dev file."),
    ("SysBlockMinorNumber", "Minor Number", "Minor Number as found in /sys/block/<dev>/dev file"),
    ("SysBlockModel", "Model", "Vendor's description of the device model this represents."),
    ("SysBlockRange", "Range", "Value from the /sys/block/<dev>/range file."),
    ("SysBlockRemovable", "Removable", "If true, the device is or contains removable media."),
    ("SysBlockRevision", "Revision", "Device revision as assigned by the vendor."),
    ("SysBlockScsiLevel", "SCSI Level", "SCSI Level identified by the device."),
    ("SysBlockSize", "Size", "Size of the device."),
    ("SysBlockVendor", "Vendor", "Vendor of the attached device."),
]
DM = [
    ("DmDevName", "Name", "Device name identified in `dmsetup ls --tree`"),
    ("DmDevMajorNumber", "Major Number", "Major number as identified by dmsetup."),
    ("DmDevMinorNumber", "Minor Number", "Minor number as identified by dmsetup."),
    ("DmDevChildCount", "Child count", "Count of the direct decendents in the tree listed by dmsetup."),
    ("DmDevMultipath", "Multipath Device",
     "If true, then this is a multipath node that represents the access point for multiple paths to the same device"),
]
PV = [
    ("PVName", "Name", "Name of the associated physical volume."),
    ("PVAllocatable", "Allocatable", "Indicates wether or not the physical volume is available for allocation."),
    ("PVAllocatedPE", "Allocated PE", "Physical extents currently allocated on this device."),
    ("PVFreePE", "Free PE", "Free number of physical extents."),
    ("PVPESize", "PE Size", "Physical extent size in kilobytes."),
    ("PVPVSize", "PV Size", "Physical volume size in kilobytes."),
    ("PVTotalPE", "Total PE", "Total number of physical extents."),
    ("PVUUID", "UUID", "Unique identifier assigned to the physical volume."),
    ("PVVGName", "VG Name", "Name of the volume group that contains this physical volume."),
]
VG = [
    ("VGName", "Name", "Name of the volume group."),
    ("VGActualPV", "Actual PV", "Actual number of physical volumes."),
    ("VGAllocPE", "Allocated PE", "Allocated number of physical extents for this volume group."),
    ("VGCurrentLV", "Current LV", "Current number of logical volumes."),
    ("VGCurrentPV", "Current PV", "Current number of physical volumes."),
    ("VGFormat", "Format", "LVM format of the volume group."),
    ("VGFreePE", "Free PE", "Free number of physical extents for this volume group."),
    ("VGMaximumLV", "Maximum LV", "Maximum number of logical volumes."),
    ("VGMaximumPV", "Maximum PV", "Maximum number of physical volumes."),
    ("VGMetadataAreas", "Metadata Areas", "Number of metadata areas in the volume group."),
    ("VGMetadataSeqNo", "Metadata seq no", "Metadata sequence number?"),
    ("VGOpenLV", "Open LV", "Open count of all logical volumes in this volume group."),
    ("VGPESize", "PE Size", "Physical extent size."),
    ("VGSystemID", "System ID", "System Id."),
    ("VGTotalPE", "Total PE", "Total physical extents"),
    ("VGUUID", "UUID", "UUID of the volume group."),
    ("VGAccess", "Access", "Volume group access"),
    ("VGSize", "Size", "Size of the volume group in kilobytes."),
    ("VGStatus", "VG Status", "Status of the volume group."),
]
LV = [
    ("LVName", "Name", "Name of the logical volume"),
    ("LVMajor", "Major Number", "Major number for the logical volume."),
    ("LVMinor", "Minor Number", "Minor number for the logical volume."),
    ("LVVGName", "Volume Group Name", "Name of the volume group of which this logical volume is a part."),
    ("LVAllocation", "Allocation", "Allocation policy of the logical volume."),
    ("LVCurrentLE", "Current LE", "Current logical extents associated to logical volume."),
    ("LVSize", "Size", "Logical volume size in kilobytes."),
    ("LVOpenCount", "Open Count", "Open count of the logical volume."),
    ("LVRAS", "Read Ahead Sectors", "Read ahead sectors of logical volume."),
    ("LVSegments", "Segments", "Segments in the logical volume."),
    ("LVStatus", "Status", "Status of the logical volume."),
    ("LVUUID", "UUID", "Internal unique identifier for the logical volume."),
    ("LVWriteAccess", "Write Access", "Read/Write access currently available for the logical volume."),
]


def proc_partition(prefix, name, blocks, major, minor):
    return record(prefix + "/proc/partitions/" + name, PROC, name, blocks, major, minor, True)


def sys_block(prefix, name, major, minor, size, model="", vendor="", revision="", scsi_level="", rng=-1,
              removable=True):
    return record(prefix + "/sys/block/" + name, SYS, name, major, minor, model, rng, removable, revision,
                  scsi_level, size, vendor)


def dm_dev(prefix, name, major, minor, children, multipath):
    return record(prefix + "dmsetup lm --tree -> " + name, DM, name, major, minor, children, multipath)


def physical_volume(prefix, name, vg, allocatable="", allocated="", free="", pe_size="", pv_size="", total="",
                    uuid=""):
    return record(prefix + 'Physical Volume "' + name + '"', PV, name, allocatable, allocated, free, pe_size,
                  pv_size, total, uuid, vg)


def volume_group(prefix, name, **values):
    assert set(values) <= {key for key, _, _ in VG}, values
    return record(prefix + "Volume Group: " + name, VG, name, *[values.get(key, "") for key, _, _ in VG[1:]])


def logical_volume(prefix, name, vg, major, minor, **values):
    assert set(values) <= {key for key, _, _ in LV[4:]}, values
    return record(prefix + "LV " + name, LV, name, major, minor, vg, *[values.get(key, "") for key, _, _ in LV[4:]])


def mount_entry(kind, prefix, device, mount_point, fs_type):
    """kind: 'mtab' or 'fstab'. The entry also sets the item's plain fileSystem property."""
    key, title = {"mtab": ("MTabEntry", "MTab Entry"), "fstab": ("FsEntry", "FS Entry")}[kind]
    p = record('%s%s: "%s"' % (prefix, title, device), [
        (key + "FsType" + mount_point, "File System", "Format of the file system on this partition."),
        (key + "MountPoint" + mount_point, "Mount Point", "Mount point for the entry in the " + kind + "."),
        (key + "Name" + device, "Name", "Name for the entry in the " + kind + "."),
    ], fs_type, mount_point, device)
    p.update(record("", [("fileSystem", "", "")], fs_type))
    return p


def alias(prefix, kind, value):
    label = ["By ID", "By Label", "By Path", "By UUID"][kind]
    return record("Aliases", [("Alias" + label + ": " + prefix + value, label,
                               "Alias by which the device may be known to the system.")], value)


STANDARD = {
    "accessType": ("Access Type", "Debug", "Means by which the system accesses the device."),
    "exclusion": ("Exclusion(s)", "General", "Reasons the target is excluded from testing. Most exclusions can be "
                  "overridden. Non-file system targets cannot override the system exclusion."),
    "index": ("Index", "Debug", "Index of the device as seen by Korvo."),
    "inquiry": ("Inquiry", "General",
                "Device inquiry. In the case of partitions, this is the inquiry of the parent device."),
    "name": ("Name", "General", "User friendly description of the device."),
    "path": ("Path", "General", "Path by which the system accesses the device."),
    "scsiString": ("SCSI Address", "General", "SCSI address of the device on the system."),
    "size": ("Size", "General", "Size, in byte, of the device."),
}


def exclusion_string(letters):
    return "".join(l if l in letters else " " for l in LETTERS)


# What a run replaying a snapshot taken before the kernel's mount and swap tables and the exclusive-open
# tests were recorded says it could not see (the list asks for them; the snapshot does not have them).
NO_IN_USE = ["/proc/self/mountinfo could not be read: mounted devices may not show as in use",
             "/proc/swaps could not be read: active swap may not show as in use",
             "no device could be tested for exclusive use: devices held by programs may not show as in use"]
NO_SYS_BLOCK = "/sys/block could not be listed: device attributes and partitions may be missing"

IN_USE = ("In Use", "General",
          "Reasons the device is in use on the system, as the kernel reports them. A device in use is never a "
          "test target.")


IDENTITY = ["serial", "wwn", "byId", "rotational", "readOnly", "transport", "logicalSectorSize",
            "physicalSectorSize", "fsType", "uuid", "label"]


def item(type_, index, name, path, size, letters, records, inquiry=BLANK_INQUIRY, scsi="None", in_use=(),
         read_only=False, target=(), data=(), unknown=None, parent=None, identity=None):
    """records: the property dicts of every record the item carries, in the order they are added; later
    ones replace earlier ones of the same key, as in the item's property map. in_use: the reasons the
    kernel gives for the item's device (the list asks for them; the report does not).
    The verdict's own facts: read_only (sysfs ro), target (why a file-system item's file would not land
    on its device), data (what the device holds at rest, in words), unknown (what could not be checked;
    None: what the snapshot lacks for the device, see not_checked).
    parent: the index of the item it belongs to in the device tree (a partition's disk, a file system's
    device); identity: what the snapshot tells of who the device is (IDENTITY keys; the rest unknown)."""
    identity = identity or {}
    assert set(identity) <= set(IDENTITY), identity
    ex = exclusion_string(letters)
    props = {}
    for r in records:
        props.update(r)
    standard = {"scsiString": scsi, "accessType": "1" if type_ & 26 else "2", "index": index, "name": name,
                "path": path, "size": size, "inquiry": inquiry, "exclusion": ex}
    for key, value in standard.items():
        label, category, description = STANDARD[key]
        props.update(record(category, [(key, label, description)], value))
    props.update(record(IN_USE[1], [("inUse", IN_USE[0], IN_USE[2])], "; ".join(in_use)))
    kind = "disk" if type_ & 4 else "fs" if type_ & 1 else "logical" if type_ & 26 else str(type_)
    return {
        "index": index, "type": type_, "kind": kind, "name": name, "path": path, "size": size,
        "inquiry": inquiry, "exclusions": ex, "reasons": [WORDS[LETTERS.index(l)] for l in LETTERS if l in letters],
        "inUse": list(in_use), **{k: identity.get(k) for k in IDENTITY}, "parent": parent, "children": [],
        "properties": {k: props[k] for k in sorted(props)},
        "_verdict": (read_only, list(target), list(data), unknown),
    }


def not_checked(root, it):
    """What a replay of `root` cannot check for an item's device: the kernel's tables it lacks, the
    exclusive-open test it did not record (or could not make without root), and the signatures at rest
    it did not record or failed to read (a network mount has neither). A file-system item is not judged by its device's signatures."""
    kernel = it["properties"].get("Name", {}).get("value", it["name"])
    out = []
    if not (root / "proc/self/mountinfo").exists():
        out.append("whether it is mounted (the mount table could not be read)")
    if not (root / "proc/swaps").exists():
        out.append("whether it is active swap (the swap table could not be read)")
    euid = root / ".vessa/euid"
    if kernel.startswith("."):
        pass  # a network or user-space file system has no device node to open
    elif euid.exists() and int(euid.read_text()) != 0:
        out.append("whether anything holds it open (not running as root)")
    elif not (root / ".vessa/ioctl" / (kernel.replace("/", "!") + ".exclusive")).exists():
        out.append("whether anything holds it open (not tested)")
    if it["type"] & 1 or kernel.startswith("."):
        return out
    signatures = root / ".vessa/ioctl" / (kernel.replace("/", "!") + ".signatures")
    if not signatures.exists():
        out.append("its signatures (not read: none recorded)")
    elif signatures.read_text().startswith("error "):
        err = int(signatures.read_text().split()[1])
        out.append("its signatures (%s)" % {110: "the device did not answer in time", 13: "not running as root",
                                           6: "its path is not running"}.get(err, os.strerror(err)))
    return out


KINDS = ["excluded", "in use", "holds data", "unknown"]


def verdict(root, it):
    """The first kind that has a reason; every reason, kinds in that order."""
    read_only, target, data, unknown = it.pop("_verdict")
    if unknown is None:
        unknown = not_checked(root, it)
    by_kind = [it["reasons"] + (["read-only"] if read_only else []), it["inUse"] + target, data,
               ["unknown: " + u for u in unknown]]
    kind = next((k for k, r in zip(KINDS, by_kind) if r), "candidate")
    it["verdict"] = {"is": kind, "reasons": [r for rs in by_kind for r in rs]}
    it["candidate"] = kind == "candidate"


def clean_element(name):
    out = ""
    for ch in name.encode("utf-8"):
        c = chr(ch)
        out += c if (c.isascii() and (c.isalnum() or c == "-")) else "%02x" % ch
    return out if out[:1].isalpha() else "x" + out


def clean_text(text):
    if text and not (" " <= text[0] <= "~"):
        text = " " * len(text.encode("utf-8"))
    for a, b in (("&", "&amp;"), ("<", "&lt;"), (">", "&gt;"), ('"', "&quot;"), ("'", "&apos;")):
        text = text.replace(a, b)
    return text


FIELDS = ["Name", "DisplayName", "Value", "Category", "Description"]


def schema_table(name):
    fields = "".join('                <xs:element name="%s" type="xs:string"%s />\n'
                     % (f, "" if f == "Name" else ' minOccurs="0"') for f in FIELDS)
    return ('          <xs:element name="%s">\n            <xs:complexType>\n              <xs:sequence>\n%s'
            "              </xs:sequence>\n            </xs:complexType>\n          </xs:element>\n" % (name, fields))


def row(table, values):
    return "  <%s>\n%s  </%s>\n" % (table, "".join("    <%s>%s</%s>\n" % (f, clean_text(v), f)
                                                   for f, v in zip(FIELDS, values)), table)


def report(items, warnings):
    """The XML report of a storage list: schema first, then one row per property. A run that could not
    see everything (a warning, or an item that could not be checked) adds a table saying so, with its
    warnings, and one of the items' verdicts. The report does not ask for the in-use reasons, so its
    warnings lack those of the in-use layer; its items' verdicts still say what could not be checked."""
    warnings = [w for w in warnings if w not in NO_IN_USE]
    partial = bool(warnings) or any(i["verdict"]["is"] == "unknown" or
                                    any(r.startswith("unknown: ") for r in i["verdict"]["reasons"]) for i in items)
    tables = [clean_element(i["path"] + ("_fs" if i["type"] & 1 else "")) for i in items]
    out = ('<?xml version="1.0" standalone="yes"?>\n<Host>\n'
           '  <xs:schema id="Host" xmlns="" xmlns:xs="http://www.w3.org/2001/XMLSchema" '
           'xmlns:msdata="urn:schemas-microsoft-com:xml-msdata">\n'
           '    <xs:element name="Host" msdata:IsDataSet="true" msdata:UseCurrentLocale="true">\n'
           "      <xs:complexType>\n"
           '        <xs:choice minOccurs="0" maxOccurs="unbounded">\n')
    out += schema_table("Property") + "".join(schema_table(t) for t in tables)
    if partial:
        out += schema_table("Completeness") + schema_table("Verdict")
    out += "        </xs:choice>\n      </xs:complexType>\n    </xs:element>\n  </xs:schema>\n"
    for table, i in zip(tables, items):
        for key, p in i["properties"].items():
            if key == "inUse":
                continue  # asked for by the list only
            out += row(table, [key, p["displayName"], p["value"], p["category"], p["description"]])
    if partial:
        out += row("Completeness", ["complete", "Complete", "false", "General",
                                    "The run could not see everything: items may be missing or lack reasons; "
                                    "see the warnings."])
        for w in warnings:
            out += row("Completeness", ["warning", "Warning", w, "General", "What the run could not see."])
        for table, i in zip(tables, items):
            v = i["verdict"]
            out += row("Verdict", [table, "Verdict", v["is"], "Candidate" if i["candidate"] else "Not a candidate",
                                   "; ".join(v["reasons"])])
    return out + "</Host>\n"


def typed(text):
    """A property value as the document writes it: a plain decimal number or true/false as such."""
    if text in ("true", "false"):
        return text == "true"
    digits = text[1:] if text.startswith("-") else text
    if digits.isascii() and digits.isdigit() and len(digits) <= 18 and (digits == "0" or digits[0] != "0") \
            and text != "-0":
        return int(text)
    return text


def document(host, warnings, items):
    """The list document: properties as a list of objects, children from the parents."""
    by_index = {i["index"]: i for i in items}
    for i in items:
        if i["parent"] is not None:
            by_index[i["parent"]]["children"].append(i["index"])
    storage = []
    for i in items:
        out = dict(i)
        out["properties"] = [{"key": k, "name": p["displayName"], "value": typed(p["value"]),
                              "description": p["description"], "category": p["category"]}
                             for k, p in i["properties"].items()]
        out["verdict"], out["candidate"] = out.pop("verdict"), out.pop("candidate")
        storage.append(out)
    return {"schema": 1, "host": host, "complete": not warnings, "warnings": warnings, "storage": storage}


def main():
    here = Path(__file__).resolve().parent
    names = sys.argv[1:] or sorted(p.parent.name for p in here.glob("*/items.py"))
    for name in names:
        folder = here / name
        spec = runpy.run_path(str(folder / "items.py"), init_globals={k: v for k, v in globals().items()})
        warnings = spec.get("WARNINGS", [])
        for it in spec["ITEMS"]:
            verdict(folder / "root", it)
        doc = document(spec["HOST"], warnings, spec["ITEMS"])
        (folder / "expected.json").write_text(json.dumps(doc, indent=2, ensure_ascii=False) + "\n")
        if spec.get("WITH_REPORT"):
            (folder / "expected.xml").write_text(report(spec["ITEMS"], warnings))
        print("wrote", folder)


if __name__ == "__main__":
    main()
