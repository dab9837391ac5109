#include "cli/NamedDevices.h"

#include <algorithm>
#include <stdexcept>

#include "cli/Guard.h"
#include "cli/ListOutput.h"

namespace vessa::cli {

vessa::target::DiscoveryReport namedDevices(const vessa::target::DiscoveryReport& report,
                                            const std::vector<std::string>& names) {
    std::vector<std::string> kernels;
    for (const std::string& name : names) {
        const std::string kernel = kernelNameOf(name);
        const bool known =
            !kernel.empty() && std::any_of(report.devices.begin(), report.devices.end(),
                                           [&kernel](const auto& n) { return n.name == kernel; });
        if (!known) {
            throw std::runtime_error(terminalText(name) + ": not a device of this machine");
        }
        kernels.push_back(kernel);
    }
    vessa::target::DiscoveryReport cut = report;
    cut.devices.clear();
    for (std::size_t i = 0; i < report.devices.size(); ++i) {
        const vessa::target::DeviceNode& n = report.devices[i];
        if (std::find(kernels.begin(), kernels.end(), n.name) == kernels.end()) {
            continue;
        }
        std::size_t end = i + 1;
        while (end < report.devices.size() && report.devices[end].depth > n.depth) {
            ++end;
        }
        for (std::size_t k = i; k < end; ++k) {
            cut.devices.push_back(report.devices[k]);
            cut.devices.back().depth -= n.depth;
        }
        i = end - 1;
    }
    return cut;
}

}  // namespace vessa::cli
