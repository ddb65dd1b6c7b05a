// QT atom containers, laid out as the QuickTime file format describes them:
// a 12-byte header (10 reserved bytes, a 16-bit lock count), then one root
// atom of type 'sean' and ID 1. Every QT atom has a 20-byte header: size,
// type, atom ID, 2 reserved bytes, a 16-bit child count, 4 reserved bytes;
// then either its children or its data. An atom is named by its offset in
// the container; kParentAtomIsContainer names the root.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <span>

#include "toolbox/Handles.h"

namespace quillora::toolbox {

using QTAtomContainer = Handle;
using QTAtom = std::int32_t;
using QTAtomType = std::uint32_t;
using QTAtomID = std::int32_t;

inline constexpr QTAtom kParentAtomIsContainer = 0;
inline constexpr std::size_t kQTAtomContainerHeaderSize = 12;
inline constexpr std::size_t kQTAtomHeaderSize = 20;
inline constexpr QTAtomType kQTAtomContainerRootType = 0x7365616E;  // 'sean'
inline constexpr OSErr cannotFindAtomErr = -2101;

OSErr QTNewAtomContainer(QTAtomContainer& container);
// Inserts a child of parent before the index-th child of the same type
// (from 1; 0 or past the last appends). An ID of 0 takes the next free ID.
OSErr QTInsertChild(const QTAtomContainer& container, QTAtom parent, QTAtomType type, QTAtomID id, std::int16_t index,
                    std::int32_t dataSize, const void* data, QTAtom* newAtom);
OSErr QTDisposeAtomContainer(QTAtomContainer& container);

// The data of the atom found by following the types from the root, each the
// first child of its type; nothing when the path or the container is broken.
std::optional<std::span<const std::uint8_t>> findQTAtomData(std::span<const std::uint8_t> container,
                                                            std::initializer_list<QTAtomType> path);

}  // namespace quillora::toolbox
