// An entry of a PM data file as people see it: its register, its page, where it stands. pmFile.h
// finds them; what programs say of files is made from them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "commandCatalogue.h"
#include "pages.h"

struct Entry {
    const catalogue::Row* row; ///< null: unknown
    std::span<const std::uint8_t> data;
    std::size_t offset; ///< of its first byte in the data
    unsigned int line;  ///< in which it begins
    unsigned int code;
    int index; ///< as pmadmin prints it, counted from 0; -1 if the code is unknown
    int page;  ///< the page it applies to, its own value if it is a PAGE entry; or NO_PAGE
    bool isWhole;

    bool selectsPage() const { return code == Page::CODE; }
    /// Whether it has the data that its command takes.
    bool isValue() const { return row != nullptr && row->size > 0 && isWhole; }
    /// The data that its command takes, without surplus bytes.
    std::span<const std::uint8_t> value() const { return data.first(row->size); }
};

/// The page that identifies the register: 255 for those common to the device, for others the
/// entry's own.
int registerPage(const Entry& entry);

/// The name of an entry's command; "command 05" if it is unknown.
std::string commandName(const Entry& entry);

/// "VOUT_OV_WARN_LIMIT of channel 3".
std::string registerName(const Entry& entry);

/// Whether the entry sets its register to the factory value.
bool isFactoryValue(const Entry& entry);

/// Whether the register identifies this one device and differs from chip to chip.
bool isIdentity(const Entry& entry);
