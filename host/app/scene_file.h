// Copyright Marvolith contributors.
// The headless scene file: every object of the open scene as a tree of chunks, with its class,
// its references by object number and its own Save data, plus the node tree, the layers and the
// core interface state.
//
// Layout (little-endian):
//   bytes 0..7   magic "MVLSCENE"
//   bytes 8..11  format version (kSceneFileVersion)
//   then chunks (6-byte headers, see chunk_stream.h):
//   0x0001 class table (container)
//     0x0002 one class: SClass_ID, Class_ID part A, part B (3 x u32); index = order
//   0x0010 objects (container), object number = order
//     0x0011 one object (container)
//       0x0012 class index (u32), always first
//       0x0013 references: slot count (u32), then one object number per slot (i32, -1 null)
//       0x0014 object number of its custom attribute container (i32), when it has one
//       0x0015 state the host keeps for the base class (container):
//              0x0016 modifier name (text), 0x0017 modifier enabled (u8),
//              0x0018 shape renderable and display-render-mesh flags (2 x u8)
//       0x0020 the object's own Save data
//   0x0030 scene (container)
//     0x0031 root node number (i32)        0x0032 layer manager number (i32)
//     0x0033 child order: for each node with children, parents first: parent (i32), child
//            count (u32), children (i32 each)
//     0x0034 core interface: time, ticks per frame, range start, range end, reference
//            coordinate system, pivot mode (6 x i32)
//     0x0035 selection: node numbers (i32 each)
// Objects are numbered depth first from the root node (references in slot order, then the
// custom attribute container, then the children in order), then from the layer manager.
// References that are not real dependencies are saved when their target is saved anyway.
// ILoad::RecordBackpatch stores the object as a ReferenceTarget* into the slot given; post-load
// callbacks run once every object is linked, and the loader deletes them (chunk_io.h).
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

/// The first eight bytes of a scene file.
inline constexpr char kSceneFileMagic[8] = {'M', 'V', 'L', 'S', 'C', 'E', 'N', 'E'};
/// The version this build writes and the newest it reads.
inline constexpr std::uint32_t kSceneFileVersion = 1;

/// Writes the open scene into out. False, with *error (when given) set to a "Marvolith: ..."
/// line, when an object wrote damaged chunks; out is then unspecified.
[[nodiscard]] bool SaveSceneToBytes(std::vector<std::uint8_t>& out, std::string* error = nullptr);
/// Writes the open scene to the file at path.
[[nodiscard]] bool SaveScene(const std::string& path, std::string* error = nullptr);

/// Loads a scene from data into a staging area and, only when the whole file was good, makes
/// it the open scene: the old scene is freed, undo is cleared, and time, frame rate, range,
/// coordinate system, pivot mode and selection are taken from the file. A truncated, damaged or
/// foreign file or a newer version is refused: false, *error set to a "Marvolith: ..." line
/// (also handed to LogLine), and the open scene as it was.
///
/// An object of a class that is not registered (a module that is not loaded) is kept as a
/// placeholder of that class with its chunks and references, as are the parameter blocks it
/// holds; one "Marvolith: ..." line per such class, naming its ids, goes to LogLine and to
/// *notes when given. A placeholder controller leaves the value it is given unchanged (a node
/// whose transform controller is missing sits at its parent), a placeholder object evaluates to
/// itself, a placeholder modifier changes nothing; saving writes each back as it was read.
[[nodiscard]] bool LoadSceneFromBytes(std::span<const std::uint8_t> data,
                                      std::string* error = nullptr,
                                      std::vector<std::string>* notes = nullptr);
/// Loads the file at path as LoadSceneFromBytes does.
[[nodiscard]] bool LoadScene(const std::string& path,
                             std::string* error = nullptr,
                             std::vector<std::string>* notes = nullptr);
