// Draws faults of the phone simulator at random, with values that lead the
// module through every kind of outcome, for the soak and the fault campaign.
//
//   std::mt19937 random(seed);
//   const FaultDraw fault = FaultDraw::draw(random);
//   options.faults.add(fault.text, &error);
//   ... Faults::expectedStates(fault.info->kind, fault.value) ...
#ifndef MOX_TESTS_SOAK_FAULTDRAW_H
#define MOX_TESTS_SOAK_FAULTDRAW_H

#include <cstdint>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "moxphone/Faults.h"

struct FaultDraw {
    const moxphone::FaultInfo* info = nullptr;
    uint32_t value = 0;
    std::string text;  // as --fault takes it

    // Any fault of the list, equally likely. A status fault carries one of the
    // module's own result states (each makes it act differently), a phone's
    // code or any 16-bit value; slow chunks stay below the command timer,
    // since the simulator's delays run on the real clock and the module's
    // timer on the test's manual one.
    static FaultDraw draw(std::mt19937& random) {
        const std::vector<moxphone::FaultInfo>& known = moxphone::Faults::known();
        std::uniform_int_distribution<size_t> pick(0, known.size() - 1);
        FaultDraw fault;
        fault.info = &known[pick(random)];
        fault.value = fault.info->defaultValue;
        if (fault.info->value == moxphone::FaultValue::kRequired) {
            fault.value = drawStatus(random);
        } else if (fault.info->kind == moxphone::FaultKind::kSlowChunks) {
            static const uint32_t kDelays[] = {0, 500, 2000, 9999};
            fault.value = kDelays[std::uniform_int_distribution<size_t>(0, 3)(random)];
        }
        fault.text = fault.info->name;
        if (fault.info->value != moxphone::FaultValue::kNone) {
            fault.text += "=" + std::to_string(fault.value);
        }
        return fault;
    }

    // The result states that the simulator documents for this fault.
    std::vector<int32_t> expectedStates() const {
        std::vector<int32_t> states;
        for (uint32_t state : moxphone::Faults::expectedStates(info->kind, value)) {
            states.push_back(static_cast<int32_t>(state));
        }
        return states;
    }

    // MOX_SOAK_SEED, else `fallback`.
    static uint32_t seedFromEnvironment(uint32_t fallback) {
        const char* text = std::getenv("MOX_SOAK_SEED");
        return text != nullptr && text[0] != '\0'
                   ? static_cast<uint32_t>(std::strtoul(text, nullptr, 10))
                   : fallback;
    }

private:
    static uint32_t drawStatus(std::mt19937& random) {
        static const uint32_t kStatuses[] = {4, 20, 100, 101, 102, 103, 104, 404, 500};
        std::uniform_int_distribution<size_t> pick(0, sizeof(kStatuses) / sizeof(kStatuses[0]));
        const size_t index = pick(random);
        if (index < sizeof(kStatuses) / sizeof(kStatuses[0])) {
            return kStatuses[index];
        }
        return std::uniform_int_distribution<uint32_t>(1, 65535)(random);
    }
};

#endif  // MOX_TESTS_SOAK_FAULTDRAW_H
