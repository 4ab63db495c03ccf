// The result states that the phone's fault table documents
// (moxphone::Faults::expectedStates) for one fault as --fault takes it: the
// one source of the states for every test that runs a fault through the
// module.
//
//   EXPECT_EQ(lookUpWith("status-ack=503"), moxtest::documentedStates("status-ack=503"));
#ifndef MOX_TESTS_FAULTSTATES_H
#define MOX_TESTS_FAULTSTATES_H

#include <cstdint>
#include <string>
#include <vector>

#include "moxphone/Faults.h"

namespace moxtest {

// The states of a lookup with only the fault `text` ("NAME" or "NAME=VALUE");
// empty for an unknown fault or a value it does not take.
inline std::vector<uint32_t> documentedStates(const std::string& text) {
    const moxphone::FaultInfo* info = moxphone::Faults::find(text.substr(0, text.find('=')));
    moxphone::Faults parsed;
    std::string error;
    if (info == nullptr || !parsed.add(text, &error)) {
        return {};
    }
    return moxphone::Faults::expectedStates(info->kind, parsed.value(info->kind));
}

}  // namespace moxtest

#endif  // MOX_TESTS_FAULTSTATES_H
