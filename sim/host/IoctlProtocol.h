// SPDX-License-Identifier: Apache-2.0
// What umockdev's library (0.17), preloaded into a program, and whoever serves its device nodes say
// to each other, over a stream socket for each opened node: "ioctl/dev/NAME" in the nodes' folder.
//
// The program sends a request: an ioctl, a read or a write of the node. The server may ask for
// bytes of the program's memory, which come without anything around them, and give it bytes to put
// there, which follow their message. With Done the call returns; until then the program sends
// nothing else.
//
// The library takes each message with one recv and does not go on where one is cut, so whoever
// sends must not cut it. It ends its program if the server goes, and if it is to read or write
// where the program has no memory.
#ifndef SIM_HOST_IOCTL_PROTOCOL_H
#define SIM_HOST_IOCTL_PROTOCOL_H

namespace sim {

enum class IoctlWord : unsigned long {
    Ioctl = 1,  // request: its number, its argument
    Read = 7,   // request: the address of the bytes, their number
    Write = 8,  // request: likewise
    Done = 3,   // the call's result, its errno value
    Ask = 5,    // for memory: the address, the number of bytes
    Give = 6,   // memory: likewise; the bytes follow
};

struct IoctlMessage {
    IoctlWord word;
    unsigned long first;
    unsigned long second;
};

// A result with which the library makes the call itself, to the file that stands for the node.
constexpr long UNHANDLED = -100;

}  // namespace sim

#endif
