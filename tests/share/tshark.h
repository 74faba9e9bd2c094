#pragma once

#include <cstddef>
#include <map>
#include <pugixml.hpp>
#include <string>
#include <vector>

#include "quorl/client/temp_directory.h"

namespace client = quorl::client;

namespace share {

/// The dissector of this tree.
std::string dissector_path();

/// tshark's arguments with the dissector ahead of them, and an environment without anybody's
/// settings or plugins.
std::vector<std::string> with_dissector(const std::vector<std::string>& arguments);
std::map<std::string, std::string> plain_environment(const std::string& home);

/// A program of Wireshark's, "tshark": where it is installed. Throws WireError without it, and if
/// another dissector than ours is installed for everybody, which would be tested in its place.
std::string program_path(const std::string& name);

/// Runs such a program to its end, with `input` as its standard input, and returns its standard
/// output. Throws WireError if it fails, and if anything it says tells of an error in the
/// dissector.
std::string run(const std::string& program, const std::vector<std::string>& arguments,
                const std::string& home, const std::string& input = "");

/// A field as shown, or a protocol's item.
struct Shown {
  std::string name;   // "quorl_tp.session_id"
  std::string value;  // "7"; empty for a protocol
  std::string label;  // "Session id: 7"
};

/// One frame as tshark has taken it apart.
class Frame {
 public:
  explicit Frame(pugi::xml_node packet) : packet_(packet) {}

  std::string protocols() const;  // "raw:ip:udp:quorl_tp"

  /// All items from each top-level item of this protocol on, in order, without expert notes.
  std::vector<Shown> shown(const std::string& protocol) const;

  /// Values of one field, wherever it stands.
  std::vector<std::string> values(const std::string& field) const;

  /// Our expert notes: {"quorl_tp.gap", its text}.
  std::vector<Shown> notes() const;
  std::vector<std::string> note_names() const;

 private:
  pugi::xml_node packet_;
};

/// A capture, every frame of it.
class Dissection {
 public:
  /// In two passes unless told otherwise.
  explicit Dissection(const std::string& capture,
                      const std::vector<std::string>& arguments = {"-2"});

  size_t size() const { return frames_.size(); }
  const Frame& frame(size_t number) const { return frames_.at(number - 1); }

 private:
  pugi::xml_document document_;
  std::vector<Frame> frames_;
};

}  // namespace share
