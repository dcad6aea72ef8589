// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_CHIP_HDCHIP_H
#define BBPFLASH_CHIP_HDCHIP_H

#include <string>

#include "i2c/I2cBus.h"
#include "lm/HcLogical.h"

// How the chip is reached; I2C is the only way.
using bustype_t = int;
const bustype_t BUSTYPE_I2C = 0;

// The chip's code for what its flash is doing, Pgm_Write_Status.
enum PgmWriteStatus {
    PGM_COMPLETE = 1,
    PGM_VERIFICATION_FAILED = 2,
    PGM_IDLE = 3,
    PGM_ERASING = 4,
    PGM_PROGRAMMING = 5,
    PGM_VERIFYING = 6,
    PGM_SECURITY_MISMATCH = 7,
    PGM_SINGLE_ON_DUAL = 8,
    PGM_DUAL_ON_SINGLE = 9
};

// The baseband processor: what it can be asked, and the download of a firmware image into it.
//
// Each query ends at its first failed step, reported, and is never tried again here.
class HdChip {
  public:
    // A chip on a bus of its own, not opened yet. Ends the process with status 1 for any other type
    // than BUSTYPE_I2C or when there is no memory.
    explicit HdChip(bustype_t type);

    HdChip(const HdChip&) = delete;
    HdChip& operator=(const HdChip&) = delete;

    // Deletes the bus.
    // Kept: the engine is left to the end of the process; nothing follows that would need its room.
    virtual ~HdChip();

    // Opens the bus device at `device` with `speed` bits per second. Returns whether it is ready.
    bool OpenChip(const char* device, int speed);

    // The bus, which stays the chip's.
    I2cBus* GetBus();

    // Reads the version text of the installed firmware into `version`: without surrounding blanks
    // and without its last two characters. Returns false, with `version` as it was, on a failure.
    // Kept: a reply without payload ends in std::out_of_range, `version` being empty by then; a
    // chip that does not know its version is never taken for one that has the image's.
    bool GetVersion(std::string& version);

    // Reports the kind of the active system configuration and dumps its 256 bytes to standard
    // output. Returns false on a failure.
    bool PrintSysCfg();

    // The flash's status: PGM_COMPLETE, PGM_IDLE, PGM_ERASING, PGM_PROGRAMMING or PGM_VERIFYING; -1
    // for an error status, reported, and for a failed query.
    // Kept: 0 when the number of segments could not be set; 14 bytes never fail there.
    int GetNvmStatus();

    // As GetNvmStatus, while the chip programs its flash.
    int ProgramWriteStatus();

    // Lifts the flash's write protection. Returns whether the chip has acknowledged it.
    bool UnprotectNvm();

    // Downloads the image file `path` and waits, without bound, until the chip has programmed its
    // flash with it. In status mode it writes the percentage to standard output, a line each time
    // it changes, else it tells the stages. Returns false when a step before the wait failed.
    bool ProgramBin(std::string& path);

    std::string chipName;  // for messages
    int i2cAddress;        // 8-bit form
    int busSpeed;          // bits per second; kept only, OpenChip is told the speed
    HcLogical* lm;         // owned
    I2cBus* bus;           // owned
};

#endif
