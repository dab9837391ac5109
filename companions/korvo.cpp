// korvo: lists this machine's storage in the version-136 device listing that the controller parses.
//
//   korvo [-p] [-f] [-l] [-zt] [-zh] [--verdicts] [DISCOVERY OPTIONS...]
//
// -p physical devices, -f file systems, -l logical devices (any together; none: every kind). -zt and
// -zh are accepted for the controller's command line and change nothing; empty arguments are skipped;
// --verdicts writes the verdicts of this machine's run behind the listing (target/VerdictListing.h);
// every other argument goes to the local discovery (e.g. -j5: five seconds for a SCSI inquiry).
// Exit status 0, or 1 with one line on standard error when discovery fails.
#include <iostream>
#include <list>
#include <memory>
#include <string>

#include "platform/Exception.h"
#include "platform/Termination.h"
#include "target/Host.h"
#include "target/KorvoListingWriter.h"
#include "target/VerdictListing.h"

int main(int argc, char** argv) {
    using vessa::target::Storage;
    // Ended by its session (or anyone), korvo ends the tools it runs as well.
    vessa::sal::exec::endGroupsOnSignals(nullptr);
    unsigned int type = 0;
    bool verdicts = false;
    std::list<std::string> options;
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        if (a == "--help") {
            std::cout << "usage: korvo [-p] [-f] [-l] [-zt] [-zh] [--verdicts] [-jSECONDS]\n";
            return 0;
        }
        if (a == "--version") {
            std::cout << "korvo " << VESSA_VERSION << '\n';
            return 0;
        }
        if (a == "-p") {
            type |= Storage::physicalStorage;
        } else if (a == "-f") {
            type |= Storage::fileSystemStorage;
        } else if (a == "-l") {
            type |= Storage::logicalStorageMask;
        } else if (a == "--verdicts") {
            verdicts = true;
        } else if (a != "-zt" && a != "-zh" && !a.empty()) {
            options.push_back(a);
        }
    }
    if (type == 0) {
        type = Storage::allStorage;
    }
    try {
        std::unique_ptr<vessa::target::Host> host(vessa::target::Host::named("127.0.0.1", false));
        host->fill(static_cast<Storage::storageType>(type), nullptr, false, options);
        vessa::sal::exec::holdIfEnding();  // ended by a signal: no listing of what was cut short
        vessa::target::writeKorvoListing(std::cout, host->storage());
        if (verdicts) {
            std::vector<vessa::target::Verdict> each;
            for (const Storage* item : host->storage()) {
                each.push_back(host->verdict(*item));
            }
            vessa::target::writeVerdictListing(std::cout, host->discoveryReport().warnings, each);
        }
        std::cout.flush();
        return std::cout ? 0 : 1;
    } catch (const vessa::Exception& e) {
        std::cerr << "korvo: " << e.why() << '\n';
    } catch (const std::exception& e) {
        std::cerr << "korvo: " << e.what() << '\n';
    }
    return 1;
}
