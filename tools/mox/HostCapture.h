// mox lookup --capture FILE: records every link of this process (whatever
// the endpoint: the built-in phone, unix: or tcp:) into a capture file that
// Wireshark opens with tools/wireshark/moxlink.lua.
//
//   HostCapture capture;
//   if (!capture.start(path, &why)) { ... }   // "" records nothing
//   ... startLink ... finalize() ...
//   // the destructor removes the listener and closes the file
//
// The capture must outlive the link: it is destroyed after the framework's
// finalize() has stopped every transport.
#ifndef MOX_HOSTCAPTURE_H
#define MOX_HOSTCAPTURE_H

#include <memory>
#include <string>

#include "moxcapture/LinkCapture.h"

class HostCapture {
public:
    HostCapture() = default;
    ~HostCapture();
    HostCapture(const HostCapture&) = delete;
    HostCapture& operator=(const HostCapture&) = delete;

    // Opens `path` and installs the listener on the host link. An empty path
    // does nothing. False with a one-line reason when the file cannot be
    // written.
    bool start(const std::string& path, std::string* why);
    // The first failure to write a record ("" when none).
    std::string failure() const;

private:
    std::unique_ptr<moxcapture::LinkCapture> mCapture;
};

#endif  // MOX_HOSTCAPTURE_H
