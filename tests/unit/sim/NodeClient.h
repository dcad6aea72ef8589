// SPDX-License-Identifier: Apache-2.0
// What the preloaded library does at its end of a device node's socket.
#ifndef TESTS_UNIT_SIM_NODECLIENT_H
#define TESTS_UNIT_SIM_NODECLIENT_H

#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>

#include "common/UniqueFd.h"
#include "sim/host/IoctlProtocol.h"

namespace sim {

struct Done {
    long result = 0;
    int error = 0;
    int asked = 0;  // how often memory had to be sent
};

// A transfer that writes a text and, if there is something to read, reads.
class Exchange {
  public:
    Exchange(const std::string& text, std::size_t size) : written_(text), read_(size, '-') {
        messages_[0].addr = messages_[1].addr = 0x17;
        messages_[0].len = static_cast<__u16>(text.size());
        messages_[0].buf = reinterpret_cast<__u8*>(written_.data());
        messages_[1].flags = I2C_M_RD;
        messages_[1].len = static_cast<__u16>(size);
        messages_[1].buf = reinterpret_cast<__u8*>(read_.data());
        transfer_.msgs = messages_;
        transfer_.nmsgs = size > 0 ? 2 : 1;
    }
    Exchange(const Exchange&) = delete;
    Exchange& operator=(const Exchange&) = delete;

    unsigned long Address() const { return reinterpret_cast<unsigned long>(&transfer_); }
    const std::string& Read() const { return read_; }
    void Write(const std::string& text) { written_.replace(0, text.size(), text); }

    // Makes all its pointers lead elsewhere.
    void Shift(unsigned long shift) {
        messages_[0].buf += shift;
        messages_[1].buf += shift;
        transfer_.msgs = reinterpret_cast<i2c_msg*>(reinterpret_cast<char*>(messages_) + shift);
    }

  private:
    std::string written_;
    std::string read_;
    i2c_msg messages_[2] = {};
    i2c_rdwr_ioctl_data transfer_ = {};
};

class NodeClient {
  public:
    explicit NodeClient(const std::string& path)
        : socket_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
        if (connect(socket_.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) !=
            0) {
            throw std::runtime_error("no connection to " + path);
        }
        // An answer that does not come is no answer.
        timeval patience = {};
        patience.tv_sec = 20;
        setsockopt(socket_.Get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    }

    static unsigned long AddressOf(const void* bytes) {
        return reinterpret_cast<unsigned long>(bytes);
    }

    // Its memory is as far from where its addresses say.
    void SetShift(unsigned long shift) { shift_ = shift; }

    Done Ioctl(unsigned long number, unsigned long argument) {
        Send(IoctlWord::Ioctl, number, argument);
        return Serve();
    }

    Done Write(const char* bytes, std::size_t size) {
        Send(IoctlWord::Write, AddressOf(bytes), size);
        return Serve();
    }

    void Send(IoctlWord word, unsigned long first, unsigned long second) {
        IoctlMessage message;
        message.word = word;
        message.first = first;
        message.second = second;
        send(socket_.Get(), &message, sizeof message, MSG_NOSIGNAL);
    }

    void SendMemory(unsigned long address, std::size_t size) {
        send(socket_.Get(), reinterpret_cast<const void*>(address - shift_), size, MSG_NOSIGNAL);
    }

    // A message, which must not be cut.
    IoctlMessage Answer() {
        IoctlMessage message;
        if (recv(socket_.Get(), &message, sizeof message, 0) != sizeof message) {
            throw std::runtime_error("no whole message");
        }
        return message;
    }

    // Does what it is asked for until the call is done.
    Done Serve() {
        Done done;
        for (;;) {
            const IoctlMessage message = Answer();
            if (message.word == IoctlWord::Done) {
                done.result = static_cast<long>(message.first);
                done.error = static_cast<int>(message.second);
                return done;
            }
            if (message.word == IoctlWord::Ask) {
                ++done.asked;
                SendMemory(message.first, message.second);
            } else {
                recv(socket_.Get(), reinterpret_cast<void*>(message.first - shift_), message.second,
                     MSG_WAITALL);
            }
        }
    }

    bool SeesTheEnd() {
        char byte;
        const ssize_t size = recv(socket_.Get(), &byte, 1, 0);
        return size == 0 || (size < 0 && errno == ECONNRESET);
    }

  private:
    common::UniqueFd socket_;
    unsigned long shift_ = 0;
};

}  // namespace sim

#endif
