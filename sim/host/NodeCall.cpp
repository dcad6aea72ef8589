// SPDX-License-Identifier: Apache-2.0
#include "sim/host/NodeCall.h"

#include <linux/i2c-dev.h>
#include <linux/i2c.h>

#include <cerrno>
#include <string>
#include <utility>

namespace sim {

namespace {

// What i2c-dev takes at most.
constexpr unsigned MOST_MESSAGES = 42;
constexpr unsigned LONGEST_I2C_MESSAGE = 8192;

// A level, with whatever is written after it.
constexpr std::size_t LONGEST_LEVEL = 4096;

unsigned long AddressOf(const void* clients) {
    return reinterpret_cast<unsigned long>(clients);
}

MemoryPiece Piece(unsigned long address, void* here, std::size_t size) {
    MemoryPiece piece;
    piece.address = address;
    piece.here = here;
    piece.size = size;
    return piece;
}

CallResult Result(long value, int error) {
    CallResult result;
    result.value = error == 0 ? value : -1;
    result.error = error;
    return result;
}

// A call of which the devices learn nothing.
class Answered : public NodeCall {
  public:
    Answered(long value, int error) : value_(value), error_(error) {}

    std::vector<MemoryPiece> Need() override { return {}; }
    CallResult Make(DeviceHandler&) override { return Result(value_, error_); }

  private:
    const long value_;
    const int error_;
};

// I2C_FUNCS tells what the adapter can do.
class Functions : public NodeCall {
  public:
    explicit Functions(unsigned long argument)
        : piece_(Piece(argument, &functions_, sizeof functions_)) {}

    // The address is tried before it is written to.
    std::vector<MemoryPiece> Need() override {
        return std::exchange(tried_, true) ? std::vector<MemoryPiece>() : std::vector{piece_};
    }

    CallResult Make(DeviceHandler&) override {
        functions_ = I2C_FUNC_I2C;
        CallResult result;
        result.given = {piece_};
        return result;
    }

  private:
    unsigned long functions_ = 0;
    const MemoryPiece piece_;
    bool tried_ = false;
};

// I2C_RDWR: some messages, to all of which the program's buffers are copied first, as i2c-dev does.
class BusTransfer : public NodeCall {
  public:
    explicit BusTransfer(unsigned long argument) : argument_(argument) {}

    std::vector<MemoryPiece> Need() override {
        switch (stage_) {
            case Stage::Argument:
                stage_ = Stage::Messages;
                return {Piece(argument_, &transfer_, sizeof transfer_)};
            case Stage::Messages:
                stage_ = Stage::Buffers;
                return NeedMessages();
            case Stage::Buffers:
                stage_ = Stage::Complete;
                return NeedBuffers();
            case Stage::Complete:
                break;
        }
        return {};
    }

    CallResult Make(DeviceHandler& handler) override {
        for (std::size_t i = 0; i < messages_.size() && error_ == 0; ++i) {
            error_ = Carry(handler, messages_[i], buffers_[i]);
        }
        CallResult result = Result(transfer_.nmsgs, error_);
        for (std::size_t i = 0; i < messages_.size() && error_ == 0; ++i) {
            if ((messages_[i].flags & I2C_M_RD) != 0 && messages_[i].len > 0) {
                result.given.push_back(PieceOf(i));
            }
        }
        return result;
    }

  private:
    enum class Stage { Argument, Messages, Buffers, Complete };

    MemoryPiece PieceOf(std::size_t i) {
        return Piece(AddressOf(messages_[i].buf), buffers_[i].data(), messages_[i].len);
    }

    std::vector<MemoryPiece> Refuse() {
        error_ = EINVAL;
        messages_.clear();
        return {};
    }

    std::vector<MemoryPiece> NeedMessages() {
        if (transfer_.nmsgs > MOST_MESSAGES) {
            return Refuse();
        }
        messages_.resize(transfer_.nmsgs);
        if (messages_.empty()) {
            return {};
        }
        return {Piece(AddressOf(transfer_.msgs), messages_.data(),
                      messages_.size() * sizeof messages_[0])};
    }

    std::vector<MemoryPiece> NeedBuffers() {
        std::vector<MemoryPiece> pieces;
        for (std::size_t i = 0; i < messages_.size(); ++i) {
            if (messages_[i].len > LONGEST_I2C_MESSAGE) {
                return Refuse();
            }
            // An empty message has a place to point to, too.
            buffers_.emplace_back(messages_[i].len + 1u);
            if (messages_[i].len > 0) {
                pieces.push_back(PieceOf(i));
            }
        }
        return pieces;
    }

    static int Carry(DeviceHandler& handler, const i2c_msg& message,
                     std::vector<std::uint8_t>& buffer) {
        if ((message.flags & I2C_M_RD) != 0) {
            return handler.ReadBus(message.addr, buffer.data(), message.len);
        }
        return handler.WriteBus(message.addr, buffer.data(), message.len);
    }

    const unsigned long argument_;
    Stage stage_ = Stage::Argument;
    int error_ = 0;
    i2c_rdwr_ioctl_data transfer_ = {};
    std::vector<i2c_msg> messages_;
    std::vector<std::vector<std::uint8_t>> buffers_;
};

class LevelWrite : public NodeCall {
  public:
    LevelWrite(unsigned long address, std::size_t size)
        : text_(size, '\0'), piece_(Piece(address, text_.data(), size)) {}

    std::vector<MemoryPiece> Need() override {
        const bool here = std::exchange(asked_, true) || text_.empty();
        return here ? std::vector<MemoryPiece>() : std::vector{piece_};
    }

    CallResult Make(DeviceHandler& handler) override {
        return Result(static_cast<long>(text_.size()),
                      handler.WriteReset(text_.data(), text_.size()));
    }

  private:
    std::string text_;
    const MemoryPiece piece_;
    bool asked_ = false;
};

std::unique_ptr<NodeCall> MakeIoctl(Node node, unsigned long number, unsigned long argument) {
    if (node == Node::Bus && number == I2C_RDWR) {
        return std::make_unique<BusTransfer>(argument);
    }
    if (node == Node::Bus && number == I2C_FUNCS) {
        return std::make_unique<Functions>(argument);
    }
    return std::make_unique<Answered>(-1, ENOTTY);
}

std::unique_ptr<NodeCall> MakeWrite(Node node, unsigned long address, unsigned long size) {
    if (node == Node::Bus) {
        return std::make_unique<Answered>(UNHANDLED, 0);
    }
    if (size > LONGEST_LEVEL) {
        return std::make_unique<Answered>(-1, EINVAL);
    }
    return std::make_unique<LevelWrite>(address, size);
}

}  // namespace

std::unique_ptr<NodeCall> MakeCall(Node node, const IoctlMessage& request) {
    switch (request.word) {
        case IoctlWord::Ioctl:
            return MakeIoctl(node, request.first, request.second);
        case IoctlWord::Read:
            return std::make_unique<Answered>(UNHANDLED, 0);
        case IoctlWord::Write:
            return MakeWrite(node, request.first, request.second);
        case IoctlWord::Done:
        case IoctlWord::Ask:
        case IoctlWord::Give:
            break;
    }
    return nullptr;
}

}  // namespace sim
