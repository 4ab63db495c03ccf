// The phone's side of one connection, as its owner (PhoneConnection) drives
// it: the simulated phone application (PhoneSession) or the replay of a
// captured phone (ReplaySession). The owner feeds what it reads, says when
// the module's end has gone and when its transport has room again; the
// session sends through its Transport.
#ifndef MOXPHONE_LINKSESSION_H
#define MOXPHONE_LINKSESSION_H

#include <cstddef>
#include <cstdint>

#include "moxdb/DbBytes.h"

namespace moxphone {

class LinkSession {
public:
    // Where the session's bytes go.
    class Transport {
    public:
        virtual ~Transport() {}
        // Stream bytes: whole envelopes, or the first part of one (faults).
        // False once the module's end is gone.
        virtual bool send(const moxdb::Bytes& bytes) = 0;
        // The phone ends the connection.
        virtual void hangUp() = 0;
        // False while the transport holds so many unsent bytes that the
        // next chunk of a transfer should wait; the owner calls resume()
        // once there is room again. A transport that sends at once always
        // has room.
        virtual bool hasRoom() const { return true; }
    };

    virtual ~LinkSession() {}
    // The connection is up: the phone's greeting goes out.
    virtual void open() = 0;
    // Bytes of the stream from the module (envelopes, split anyhow); false
    // once the session has ended.
    virtual bool receiveBytes(const uint8_t* data, size_t size) = 0;
    // The module's end has gone: nothing more is sent, pending sends are dropped.
    virtual void close() = 0;
    // The transport has room again: what waited for it goes on.
    virtual void resume() = 0;
    // True from open() until close(), a hang-up, or a failed send.
    virtual bool isOpen() const = 0;
};

}  // namespace moxphone

#endif  // MOXPHONE_LINKSESSION_H
