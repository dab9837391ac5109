#!/usr/bin/env python3
"""Composes a scenario's expected.json from the items its README derives.

Each scenario folder holds `items.py`, which lists the items the discovery must report (type, index,
name, path, size, inquiry, exclusion letters) and, per item, the records whose properties it carries,
in the words of the rules: a /proc/partitions entry, an mtab entry, a logical volume, and so on. This
file states those property tables once, from the rules, independently of the library's code, and
writes expected.json. Run it after changing an items.py: python3 tests/scenarios/compose.py NAME
"""
import json
import runpy
import sys
from pathlib import Path

LETTERS = "AGIMPSUVWZ"
WORDS = ["boot", "no signature", "reserved", "empty", "partitioned", "system", "user",
         "volume group member", "swap", "excluded by listing"]
BLANK_INQUIRY = " " * 28


def prop(key, value, label, description, category):
    return {key: {"value": value, "displayName": label, "category": category, "description": description}}


def proc_partition(prefix, name, blocks, major, minor):
    c = prefix + "/proc/partitions/" + name
    p = {}
    p.update(prop("Name", name, "Name", "Name pulled from the /proc/partitions entry for this item", c))
    p.update(prop("Blocks", str(blocks), "Blocks", "Number of blocks the item contains.", c))
    p.update(prop("MajorNumber", str(major), "Major Number",
                  "System assigned major number.  Typically indicates the bus type of the device.", c))
    p.update(prop("MinorNumber", str(minor), "Minor Number",
                  "System assigned minor number.  Typically indicates the index of the device on the bus.", c))
    p.update(prop("Valid", "true", "Valid Entry",
                  "If true, then this represents a valid entry in the /proc/partitions file.", c))
    return p


def sys_block(prefix, name, major, minor, size, model="", vendor="", revision="", scsi_level="", rng=-1,
              removable=True):
    c = prefix + "/sys/block/" + name
    p = {}
    p.update(prop("SysBlockName", name, "Name", "Name of the connected /sys/block entry.", c))
    p.update(prop("SysBlockMajorNumber", str(major), "Major Number",
                  "Major Number as found in /sys/block/<dev>/dev file.", c))
    p.update(prop("SysBlockMinorNumber", str(minor), "Minor Number",
                  "Minor Number as found in /sys/block/<dev>/dev file", c))
    p.update(prop("SysBlockModel", model, "Model", "Vendor's description of the device model this represents.", c))
    p.update(prop("SysBlockRange", str(rng), "Range", "Value from the /sys/block/<dev>/range file.", c))
    p.update(prop("SysBlockRemovable", "true" if removable else "false", "Removable",
                  "If true, the device is or contains removable media.", c))
    p.update(prop("SysBlockRevision", revision, "Revision", "Device revision as assigned by the vendor.", c))
    p.update(prop("SysBlockScsiLevel", scsi_level, "SCSI Level", "SCSI Level identified by the device.", c))
    p.update(prop("SysBlockSize", str(size), "Size", "Size of the device.", c))
    p.update(prop("SysBlockVendor", vendor, "Vendor", "Vendor of the attached device.", c))
    return p


def dm_dev(prefix, name, major, minor, children, multipath):
    c = prefix + "dmsetup lm --tree -> " + name
    p = {}
    p.update(prop("DmDevName", name, "Name", "Device name identified in `dmsetup ls --tree`", c))
    p.update(prop("DmDevMajorNumber", str(major), "Major Number", "Major number as identified by dmsetup.", c))
    p.update(prop("DmDevMinorNumber", str(minor), "Minor Number", "Minor number as identified by dmsetup.", c))
    p.update(prop("DmDevChildCount", str(children), "Child count",
                  "Count of the direct decendents in the tree listed by dmsetup.", c))
    p.update(prop("DmDevMultipath", "true" if multipath else "false", "Multipath Device",
                  "If true, then this is a multipath node that represents the access point for multiple paths "
                  "to the same device", c))
    return p


def physical_volume(prefix, name, vg, allocatable="", allocated="", free="", pe_size="", pv_size="", total="",
                    uuid=""):
    c = prefix + 'Physical Volume "' + name + '"'
    p = {}
    p.update(prop("PVName", name, "Name", "Name of the associated physical volume.", c))
    p.update(prop("PVAllocatable", allocatable, "Allocatable",
                  "Indicates wether or not the physical volume is available for allocation.", c))
    p.update(prop("PVAllocatedPE", allocated, "Allocated PE", "Physical extents currently allocated on this device.", c))
    p.update(prop("PVFreePE", free, "Free PE", "Free number of physical extents.", c))
    p.update(prop("PVPESize", pe_size, "PE Size", "Physical extent size in kilobytes.", c))
    p.update(prop("PVPVSize", pv_size, "PV Size", "Physical volume size in kilobytes.", c))
    p.update(prop("PVTotalPE", total, "Total PE", "Total number of physical extents.", c))
    p.update(prop("PVUUID", uuid, "UUID", "Unique identifier assigned to the physical volume.", c))
    p.update(prop("PVVGName", vg, "VG Name", "Name of the volume group that contains this physical volume.", c))
    return p


VG_TABLE = [
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


def volume_group(prefix, name, **values):
    c = prefix + "Volume Group: " + name
    p = {}
    for key, label, description in VG_TABLE:
        value = name if key == "VGName" else values.get(key, "")
        p.update(prop(key, value, label, description, c))
    return p


LV_TABLE = [
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


def logical_volume(prefix, name, vg, major, minor, **values):
    c = prefix + "LV " + name
    p = {}
    p.update(prop("LVName", name, "Name", "Name of the logical volume", c))
    p.update(prop("LVMajor", str(major), "Major Number", "Major number for the logical volume.", c))
    p.update(prop("LVMinor", str(minor), "Minor Number", "Minor number for the logical volume.", c))
    p.update(prop("LVVGName", vg, "Volume Group Name",
                  "Name of the volume group of which this logical volume is a part.", c))
    for key, label, description in LV_TABLE:
        p.update(prop(key, values.get(key, ""), label, description, c))
    return p


def mount_entry(kind, prefix, device, mount_point, fs_type):
    """kind: 'mtab' or 'fstab'."""
    key, word = ("MTabEntry", "mtab") if kind == "mtab" else ("FsEntry", "fstab")
    c = prefix + ("MTab Entry: \"" if kind == "mtab" else "FS Entry: \"") + device + "\""
    p = {}
    p.update(prop(key + "FsType" + mount_point, fs_type, "File System",
                  "Format of the file system on this partition.", c))
    p.update(prop("fileSystem", fs_type, "", "", ""))
    p.update(prop(key + "MountPoint" + mount_point, mount_point, "Mount Point",
                  "Mount point for the entry in the " + word + ".", c))
    p.update(prop(key + "Name" + device, device, "Name", "Name for the entry in the " + word + ".", c))
    return p


def alias(prefix, kind, value):
    label = {0: "By ID", 1: "By Label", 2: "By Path", 3: "By UUID"}[kind]
    key = "Alias" + label + ": " + prefix + value
    return prop(key, value, label, "Alias by which the device may be known to the system.", "Aliases")


def standard(key, value):
    table = {
        "accessType": ("Access Type", "Debug", "Means by which the system accesses the device."),
        "exclusion": ("Exclusion(s)", "General",
                      "Reasons the target is excluded from testing. Most exclusions can be overridden. Non-file "
                      "system targets cannot override the system exclusion."),
        "index": ("Index", "Debug", "Index of the device as seen by Korvo."),
        "inquiry": ("Inquiry", "General",
                    "Device inquiry. In the case of partitions, this is the inquiry of the parent device."),
        "name": ("Name", "General", "User friendly description of the device."),
        "path": ("Path", "General", "Path by which the system accesses the device."),
        "scsiString": ("SCSI Address", "General", "SCSI address of the device on the system."),
        "size": ("Size", "General", "Size, in byte, of the device."),
    }
    label, category, description = table[key]
    return prop(key, value, label, description, category)


def exclusion_string(letters):
    return "".join(l if l in letters else " " for l in LETTERS)


def item(type_, index, name, path, size, letters, records, inquiry=BLANK_INQUIRY, scsi="None"):
    """records: the property dicts of every record the item carries, in the order they are added; later
    ones replace earlier ones of the same key, as in the item's property map."""
    ex = exclusion_string(letters)
    props = {}
    for r in records:
        props.update(r)
    access = "1" if type_ & 26 else "2"
    props.update(standard("scsiString", scsi))
    props.update(standard("accessType", access))
    props.update(standard("index", str(index)))
    props.update(standard("name", name))
    props.update(standard("path", path))
    props.update(standard("size", str(size)))
    props.update(standard("inquiry", inquiry))
    props.update(standard("exclusion", ex))
    return {
        "index": index, "type": type_, "name": name, "path": path, "size": size, "inquiry": inquiry,
        "exclusions": ex, "reasons": [WORDS[LETTERS.index(l)] for l in LETTERS if l in letters],
        "properties": {k: props[k] for k in sorted(props)},
    }


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


def schema_table(name):
    return ('          <xs:element name="%s">\n'
            "            <xs:complexType>\n"
            "              <xs:sequence>\n"
            '                <xs:element name="Name" type="xs:string" />\n'
            '                <xs:element name="DisplayName" type="xs:string" minOccurs="0" />\n'
            '                <xs:element name="Value" type="xs:string" minOccurs="0" />\n'
            '                <xs:element name="Category" type="xs:string" minOccurs="0" />\n'
            '                <xs:element name="Description" type="xs:string" minOccurs="0" />\n'
            "              </xs:sequence>\n"
            "            </xs:complexType>\n"
            "          </xs:element>\n" % name)


def report(items):
    """The XML report of a storage list: schema first, then one row per property."""
    tables = [clean_element(i["path"] + ("_fs" if i["type"] & 1 else "")) for i in items]
    out = ('<?xml version="1.0" standalone="yes"?>\n<Host>\n'
           '  <xs:schema id="Host" xmlns="" xmlns:xs="http://www.w3.org/2001/XMLSchema" '
           'xmlns:msdata="urn:schemas-microsoft-com:xml-msdata">\n'
           '    <xs:element name="Host" msdata:IsDataSet="true" msdata:UseCurrentLocale="true">\n'
           "      <xs:complexType>\n"
           '        <xs:choice minOccurs="0" maxOccurs="unbounded">\n')
    out += schema_table("Property") + "".join(schema_table(t) for t in tables)
    out += "        </xs:choice>\n      </xs:complexType>\n    </xs:element>\n  </xs:schema>\n"
    for table, i in zip(tables, items):
        for key, p in i["properties"].items():
            out += "  <%s>\n" % table
            out += "    <Name>%s</Name>\n" % clean_text(key)
            out += "    <DisplayName>%s</DisplayName>\n" % clean_text(p["displayName"])
            out += "    <Value>%s</Value>\n" % clean_text(p["value"])
            out += "    <Category>%s</Category>\n" % clean_text(p["category"])
            out += "    <Description>%s</Description>\n" % clean_text(p["description"])
            out += "  </%s>\n" % table
    return out + "</Host>\n"


def main():
    here = Path(__file__).resolve().parent
    names = sys.argv[1:] or sorted(p.parent.name for p in here.glob("*/items.py"))
    for name in names:
        folder = here / name
        spec = runpy.run_path(str(folder / "items.py"), init_globals={k: v for k, v in globals().items()})
        doc = {"host": spec["HOST"], "storage": spec["ITEMS"]}
        (folder / "expected.json").write_text(json.dumps(doc, indent=2, ensure_ascii=False) + "\n")
        print("wrote", folder / "expected.json")
        if spec.get("WITH_REPORT"):
            (folder / "expected.xml").write_text(report(spec["ITEMS"]))
            print("wrote", folder / "expected.xml")


if __name__ == "__main__":
    main()
