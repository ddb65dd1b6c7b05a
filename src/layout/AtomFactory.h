// What the layouts need of whoever they build atoms for: an atom made of a
// type and a payload. The editor is one (it logs each atom it makes when
// atom debugging is on), so the layouts build for it without depending on it.
#pragma once

#include <cstdint>
#include <span>

#include "foundation/Bytes.h"

namespace quillora {

class AtomFactory {
public:
    virtual Bytes createAtomOfType(std::uint32_t type, std::span<const std::uint8_t> data) = 0;

protected:
    ~AtomFactory() = default;
};

}  // namespace quillora
