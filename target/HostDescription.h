// What the environment tool "vessa.shed.env" prints about the machine it runs on: the nine
// "key=value" lines that Host::refreshHostInfo reads on the controller.
//
//   vltt.version     the tools' version               build.os, build.cpu  what the tools were built for
//   vltt.installdir  the tools' install directory     os.name              the distribution's name
//   os.version       the kernel release               os.bits              64 or 32, from the machine
//   cpu.name         the processor's model name       cpu.count            processors listed by the kernel
//
// Facts are gathered by the caller (uname, files) and only formatted here, so that the format can be
// checked on any text.
#pragma once

#include <string>

namespace vessa::target {

struct LocalFacts {
    std::string version;     // the tools' version
    std::string installDir;  // the tools' install directory
    std::string buildOs;     // sal::hostinfo::build::os()
    std::string buildCpu;    // sal::hostinfo::build::cpu()
    std::string sysname;     // uname: "Linux"
    std::string release;     // uname: kernel release
    std::string machine;     // uname: "x86_64", ...
    std::string osRelease;   // content of /etc/os-release ("" when missing)
    std::string cpuInfo;     // content of /proc/cpuinfo ("" when missing)
    long onlineCpus = 0;     // sysconf(_SC_NPROCESSORS_ONLN), used when cpuInfo lists no processor
};

// The nine lines, each "key=value\n", in the order above. A value never holds a line end.
std::string hostDescription(const LocalFacts& facts);

}  // namespace vessa::target
