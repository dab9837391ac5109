// Lists this machine's storage with each item's verdict: whether it may be destroyed by testing, and
// if not, why. A plain fill is enough: a local run decides every verdict, so the disk under the running
// system is never a candidate. Run it as root to see everything; otherwise what could not be checked
// is unknown.
//
//   list_verdicts
//
// One line an item: its path, its verdict and the reasons for it, separated by tabs.
// Exit status 0, or 1 with one line on standard error when discovery failed.
#include <iostream>
#include <memory>

#include "platform/Exception.h"
#include "target/Host.h"

int main() {
    using vessa::target::Host;
    using vessa::target::Storage;
    try {
        std::unique_ptr<Host> host(Host::named("localhost", false));
        host->fill(Storage::allStorage, nullptr, false, {});
        for (const Storage* item : host->storage()) {
            const vessa::target::Verdict verdict = host->verdict(*item);
            std::cout << item->path() << '\t' << verdict.word();
            const char* separator = "\t";
            for (const std::string& reason : verdict.reasons()) {
                std::cout << separator << reason;
                separator = "; ";
            }
            std::cout << '\n';
        }
        if (!host->discoveryReport().complete()) {
            std::cerr << "list_verdicts: this run could not see everything: "
                      << host->discoveryReport().warnings.front() << '\n';
        }
        return std::cout.flush() ? 0 : 1;
    } catch (const vessa::Exception& e) {
        std::cerr << "list_verdicts: " << e.why() << '\n';
        return 1;
    }
}
