#include "BuiltinPhone.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "HbFramework/HbLTimerMng.h"
#include "moxphone/Catalogue.h"
#include "moxphone/Faults.h"
#include "moxphone/PhoneOptions.h"

std::unique_ptr<BuiltinPhone> BuiltinPhone::create(const std::string& catalogPath,
                                                   const std::vector<std::string>& faults,
                                                   std::ostream* log, std::string* why,
                                                   const moxphone::PhoneSourceOptions* sources) {
    const std::string path = catalogPath.empty() ? moxphone::Catalogue::bundledPath() : catalogPath;
    // A FIFO or a device would block the catalogue's reader, or never end.
    struct stat info;
    if (::stat(path.c_str(), &info) != 0) {
        *why = path + ": " + std::strerror(errno);
        return nullptr;
    }
    if (!S_ISREG(info.st_mode)) {
        *why = path + ": not a regular file";
        return nullptr;
    }
    std::shared_ptr<moxphone::Catalogue> catalogue = std::make_shared<moxphone::Catalogue>();
    moxphone::CatalogueProblem problem;
    if (!moxphone::Catalogue::loadFile(path, catalogue.get(), &problem)) {
        *why = path + ": " + problem.text();
        return nullptr;
    }
    moxphone::PhoneOptions options;
    options.catalogue = catalogue;
    for (const std::string& fault : faults) {
        if (!options.faults.add(fault, why)) {
            return nullptr;
        }
    }
    // The phone's delays follow the module's timers.
    options.timeScale = HbLTimerMng::GetTimerMng()->GetTimeScale();
    if (sources != nullptr &&
        !sources->makeSource("mox", MOX_VERSION, options.timeScale, &options.source, why)) {
        return nullptr;
    }
    if (!options.validate(why)) {
        return nullptr;
    }
    std::unique_ptr<BuiltinPhone> phone(new BuiltinPhone(log));
    phone->mPhone.reset(new moxphone::LoopbackPhone(options, phone->mLog));
    return phone;
}

std::string BuiltinPhone::faultsHelp() {
    std::string out =
        "The faults of the built-in phone, for --fault NAME or NAME=VALUE (repeatable); "
        "mox-phone --list-faults tells the result states that each leads to.\n";
    for (const moxphone::FaultInfo& fault : moxphone::Faults::known()) {
        std::string name = fault.name;
        if (fault.value == moxphone::FaultValue::kRequired) {
            name += std::string("=") + fault.valueName;
        } else if (fault.value == moxphone::FaultValue::kOptional) {
            name += std::string("[=") + fault.valueName + "]";
        }
        out += "  " + name + std::string(name.size() < 26 ? 26 - name.size() : 1, ' ') +
               fault.effect + "\n";
    }
    return out;
}
