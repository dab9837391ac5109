// The command's heap, backed by large pages where the kernel allows it.
//
// A listing of tens of thousands of devices builds several hundred megabytes of small objects. Taking
// that memory from the kernel one 4 KiB page (and one page fault) at a time cost about a tenth of such
// a run. preferLargePages() asks the C library to grow the heap in one large step and to keep what it
// took until the process ends, and asks the kernel to back that range with transparent huge pages
// (honoured when the kernel's setting is "madvise" or "always"). Where either refuses, nothing changes
// but the step. It also keeps every thread on the one heap: the run's reading threads make the small
// objects that the run itself later frees and makes again, and with a heap per thread what they freed
// stayed apart from what the run could reuse (about a tenth of the peak at 40,000 devices). Call once,
// at the start of main, while the heap is still small and before any thread starts.
#pragma once

namespace vessa::cli {

void preferLargePages();

}  // namespace vessa::cli
