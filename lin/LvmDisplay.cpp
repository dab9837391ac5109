#include "lin/LvmDisplay.h"

#include "platform/Str.h"

namespace vessa::target::lin {

std::string lvmValue(const std::string& line, const std::string& key) {
    const std::string::size_type start = line.find(key) + key.size();
    if (start > line.size()) {
        return "";
    }
    return util::str::trim(line.substr(start));
}

void walkLvmDisplay(const std::string& output, const std::vector<LvmKey>& keys,
                    const std::function<void(std::vector<std::string>&)>& emit,
                    const std::function<void(const std::string&)>& onName) {
    std::vector<std::string> fields(keys.size());
    std::string::size_type start = 0;
    while (start < output.size()) {
        const std::string::size_type nl = output.find('\n', start);
        const std::string line =
            output.substr(start, nl == std::string::npos ? std::string::npos : nl - start);
        start = nl == std::string::npos ? output.size() : nl + 1;
        for (std::size_t k = 0; k < keys.size(); ++k) {
            if (line.find(keys[k].match) == std::string::npos) {
                continue;
            }
            if (k == 0) {
                if (!fields[0].empty()) {
                    emit(fields);
                }
                fields.assign(keys.size(), std::string());
                std::string name = lvmValue(line, keys[0].extract);
                if (name.compare(0, 5, "/dev/") == 0) {
                    name.erase(0, 5);
                }
                fields[0] = name;
                onName(name);
            } else {
                fields[k] = lvmValue(line, keys[k].extract);
            }
            break;
        }
    }
    if (!fields[0].empty()) {
        emit(fields);
    }
}

}  // namespace vessa::target::lin
