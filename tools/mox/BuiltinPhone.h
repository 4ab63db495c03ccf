// The phone simulator in this process, as `mox lookup --phone builtin` uses
// it: a catalogue, the faults asked for, quiet unless asked to log.
#ifndef MOX_TOOLS_BUILTINPHONE_H
#define MOX_TOOLS_BUILTINPHONE_H

#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "OstLinkApp/OstLinkAppHost.h"
#include "moxphone/LoopbackPhone.h"
#include "moxphone/PhoneLog.h"
#include "moxphone/PhoneSourceOptions.h"

class BuiltinPhone {
public:
    // `catalogPath` empty means the bundled sample catalogue. `log` receives
    // one line per frame, or nothing when null. `sources` chooses where discs
    // are looked up (null: the catalogue). Null, with a one-line reason, when
    // the catalogue does not load, a fault is unknown or the source options
    // do not go together.
    static std::unique_ptr<BuiltinPhone> create(
        const std::string& catalogPath, const std::vector<std::string>& faults, std::ostream* log,
        std::string* why, const moxphone::PhoneSourceOptions* sources = nullptr);

    // The faults that --fault takes, for the help: one line per fault, its
    // name (with =N where it takes a value) and what the phone then does,
    // after a line saying where the result states of each are told.
    static std::string faultsHelp();

    // The peer to install with OstLinkAppHost::setLoopbackPeer.
    OstLinkAppPeer* peer() { return mPhone.get(); }

private:
    explicit BuiltinPhone(std::ostream* log) : mLog(log) {}

    moxphone::PhoneLog mLog;
    std::unique_ptr<moxphone::LoopbackPhone> mPhone;
};

#endif  // MOX_TOOLS_BUILTINPHONE_H
