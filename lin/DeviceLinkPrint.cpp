// The diagnostic dump of a device link: everything it gathered, related links indented below it by
// four blanks per level.
#include "lin/DeviceLink.h"
#include "lin/DiskBy.h"
#include "lin/DmTreeDev.h"
#include "lin/FsTableEntry.h"
#include "lin/LogicalVolume.h"
#include "lin/MTableEntry.h"
#include "lin/PhysicalVolume.h"
#include "lin/ProcPartition.h"
#include "lin/SysBlock.h"
#include "lin/VolumeGroup.h"
#include "platform/Log.h"

namespace vessa::target::lin {

namespace {
constexpr const char* kUnit = "lin/DeviceLink";
constexpr const char* kTrace = "DeviceLink::print";
}  // namespace

#define DUMP VESSA_LOG_AT(kUnit, kTrace) << pad

void DeviceLink::print(int indent) {
    const Visit visit(this, Print);
    if (!visit.entered()) {
        return;
    }
    VESSA_TRACE(kUnit, kTrace);
    if (!vessa::log::enabled()) {
        return;
    }
    const std::string pad(static_cast<std::size_t>(indent < 0 ? 0 : indent) * 4, ' ');
    const ProcPartition& pp = *procPartition_;
    DUMP << "---------------------- " << pp.name() << " --------------------------";
    DUMP << "    Blocks: " << pp.blocks();
    DUMP << "    Major : " << pp.major();
    DUMP << "    Minor : " << pp.minor();
    DUMP << "    Valid : " << (pp.valid() ? "true" : "false");

    DUMP << " Connected to " << sysBlocks.size() << " sys/block devices";
    for (const SysBlock* s : sysBlocks) {
        DUMP << "  SysBlock : " << s->name();
        DUMP << "    Major    : " << s->major();
        DUMP << "    Minor    : " << s->minor();
        DUMP << "    Model    : " << s->model();
        DUMP << "    Range    : " << s->range();
        DUMP << "    Removable: " << (s->removable() ? "true" : "false");
        DUMP << "    Revison  : " << s->revision();
        DUMP << "    SCSI Lev : " << s->scsiLevel();
        DUMP << "    Size     : " << s->size();
        DUMP << "    Vendor   : " << s->vendor();
    }

    DUMP << " Connected to " << dmDevs.size() << " dm tree devices";
    for (const DmTreeDev* d : dmDevs) {
        DUMP << "  DmDev : " << d->name() << " (" << d->major() << ":" << d->minor() << ") "
             << d->children().size() << " children";
    }

    DUMP << " Connected to " << physicalVolumes.size() << " physical volumes";
    for (const PhysicalVolume* v : physicalVolumes) {
        DUMP << "  Physical : " << v->name();
        DUMP << "    Allocatable: " << v->allocatable();
        DUMP << "    Alloc'd PE : " << v->allocatedPE();
        DUMP << "    Free PE    : " << v->freePE();
        DUMP << "    PE Size    : " << v->peSize();
        DUMP << "    PV Size    : " << v->pvSize();
        DUMP << "    Total PE   : " << v->totalPE();
        DUMP << "    UUID       : " << v->uuid();
        DUMP << "    VG Name    : " << v->vgName();
    }

    DUMP << " Connected to " << logicalVolumes.size() << " logical volumes";
    for (const LogicalVolume* l : logicalVolumes) {
        DUMP << "  Logical : " << l->name();
        DUMP << "    Allocation : " << l->value(LogicalVolume::Allocation);
        DUMP << "    Cur LE     : " << l->value(LogicalVolume::CurrentLE);
        DUMP << "    LV Size    : " << l->value(LogicalVolume::Size);
        DUMP << "    # Open     : " << l->value(LogicalVolume::OpenCount);
        DUMP << "    RAS        : " << l->value(LogicalVolume::ReadAhead);
        DUMP << "    Segments   : " << l->value(LogicalVolume::Segments);
        DUMP << "    Status     : " << l->value(LogicalVolume::Status);
        DUMP << "    WriteAccess: " << l->value(LogicalVolume::WriteAccess);
    }

    DUMP << " Connected to " << volumeGroups.size() << " volume groups";
    for (const VolumeGroup* g : volumeGroups) {
        DUMP << "  Volume Group : " << g->name();
        DUMP << "    Active PV         : " << g->value(VolumeGroup::ActualPV);
        DUMP << "    Maximum LV        : " << g->value(VolumeGroup::MaximumLV);
        DUMP << "    Maximum PV        : " << g->value(VolumeGroup::MaximumPV);
        DUMP << "    Metadata seq no.  : " << g->value(VolumeGroup::MetadataSeqNo);
        DUMP << "    UUID              : " << g->value(VolumeGroup::Uuid);
    }

    DUMP << " Connected to " << diskBys.size() << " aliases";
    for (const DiskBy* a : diskBys) {
        switch (a->kind()) {
            case DiskBy::ById:
                DUMP << "    ID    : " << a->alias();
                break;
            case DiskBy::ByLabel:
                DUMP << "    Label : " << a->alias();
                break;
            case DiskBy::ByPath:
                DUMP << "    Path  : " << a->alias();
                break;
            case DiskBy::ByUuid:
                DUMP << "    UUID  : " << a->alias();
                break;
            default:
                DUMP << "?!?" << a->alias();
                break;
        }
    }

    DUMP << " Connected to  " << fsTableEntries.size() << " entries in fstab";
    for (const FsTableEntry* f : fsTableEntries) {
        DUMP << "    " << f->deviceName() << "  @  " << f->mountPoint();
    }
    DUMP << " Connected to  " << mTableEntries.size() << " entries in mtab";
    for (const MTableEntry* m : mTableEntries) {
        DUMP << "    " << m->deviceName() << "  @  " << m->mountPoint();
    }

    DUMP << " We've got " << holders.size() << " holders";
    for (DeviceLink* h : holders) {
        h->print(indent + 1);
    }
    DUMP << " We've got " << partitions.size() << " partitions";
    for (DeviceLink* p : partitions) {
        p->print(indent + 1);
    }
    DUMP << "Multipath device for " << mpathTargets.size() << " targets";
    for (DeviceLink* t : mpathTargets) {
        t->print(indent + 1);
    }
}

#undef DUMP

}  // namespace vessa::target::lin
