// The simulator's log: one line per frame received or sent, per fault applied
// and per connection event, each written whole ("mox-phone: " + text + "\n")
// so that lines of several threads never mix. A log made with a null stream
// is quiet. Can be used from any thread.
#ifndef MOXPHONE_PHONELOG_H
#define MOXPHONE_PHONELOG_H

#include <mutex>
#include <ostream>
#include <string>

namespace moxphone {

class PhoneLog {
public:
    // `out` is not owned and must outlive the log; null makes the log quiet.
    explicit PhoneLog(std::ostream* out);

    void line(const std::string& text);
    bool quiet() const { return mOut == nullptr; }

    static constexpr const char* kPrefix = "mox-phone: ";

private:
    std::mutex mMutex;  // one line at a time
    std::ostream* mOut;
};

}  // namespace moxphone

#endif  // MOXPHONE_PHONELOG_H
