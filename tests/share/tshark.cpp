#include "tests/share/tshark.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <functional>

#include "quorl/client/child_process.h"
#include "quorl/client/errors.h"

namespace share {
namespace {

constexpr std::chrono::seconds TSHARK_PATIENCE{120};  // it takes a second or two

int open_to_write(const std::string& path) {
  const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  if (fd < 0) throw client::SystemError("open " + path);
  return fd;
}

std::string attribute(pugi::xml_node node, const char* name) {
  return node.attribute(name).as_string();
}

/// Calls `visit` for every item below `node`, in order, but for those of expert notes and the word
/// "malformed" that Wireshark puts beside some of them.
void visit_items(pugi::xml_node node, const std::function<void(pugi::xml_node)>& visit) {
  for (const pugi::xml_node child : node.children()) {
    const std::string name = attribute(child, "name");
    if (name == "_ws.expert" || name == "_ws.malformed") continue;
    visit(child);
    visit_items(child, visit);
  }
}

Shown shown_item(pugi::xml_node node) {
  return {attribute(node, "name"), attribute(node, "show"), attribute(node, "showname")};
}

}  // namespace

std::string tshark_path() {
  for (const char* path : {"/usr/bin/tshark", "/usr/local/bin/tshark"}) {
    if (::access(path, X_OK) == 0) return path;
  }
  throw client::WireError("there is no tshark; Debian has it in the package of that name");
}

std::vector<std::string> with_dissector(const std::vector<std::string>& arguments) {
  std::vector<std::string> all{"-n", "-X", "lua_script:" QUORL_SOURCE "/share/quorl/quorl.lua"};
  all.insert(all.end(), arguments.begin(), arguments.end());
  return all;
}

std::map<std::string, std::string> plain_environment(const std::string& home) {
  return {{"PATH", "/usr/sbin:/usr/bin:/sbin:/bin"},
          {"LC_ALL", "C.UTF-8"},
          {"HOME", home},
          {"XDG_CONFIG_HOME", home}};
}

TsharkSaid run_tshark(const std::vector<std::string>& arguments) {
  const client::TempDirectory home;
  const std::string out = home.path() + "/out", err = home.path() + "/err";
  const int out_fd = open_to_write(out), err_fd = open_to_write(err);
  client::ChildProcess process({.program = tshark_path(),
                                .arguments = with_dissector(arguments),
                                .environment = plain_environment(home.path()),
                                .stdout_fd = out_fd,
                                .stderr_fd = err_fd});
  ::close(out_fd);
  ::close(err_fd);
  const client::ExitStatus status = process.wait_exit(client::Deadline::after(TSHARK_PATIENCE));
  TsharkSaid said{client::read_file(out), client::read_file(err)};
  if (status != client::ExitStatus{.exited = true}) {
    throw client::WireError("tshark: " + status.describe() + ": " + said.err);
  }
  for (const std::string& text : {said.out, said.err}) {
    for (const char* trouble : {"Lua Error", "Lua:", "_ws.lua.error", "Dissector bug"}) {
      const size_t found = text.find(trouble);
      if (found != std::string::npos) {
        throw client::WireError("tshark says " + text.substr(found, 500));
      }
    }
  }
  return said;
}

std::string Frame::protocols() const {
  const std::vector<std::string> found = values("frame.protocols");
  return found.empty() ? "" : found.front();
}

std::vector<Shown> Frame::shown(const std::string& protocol) const {
  std::vector<Shown> items;
  for (const pugi::xml_node top : packet_.children("proto")) {
    if (attribute(top, "name") != protocol) continue;
    items.push_back(shown_item(top));
    visit_items(top, [&](pugi::xml_node node) { items.push_back(shown_item(node)); });
  }
  return items;
}

std::vector<std::string> Frame::values(const std::string& field) const {
  std::vector<std::string> found;
  visit_items(packet_, [&](pugi::xml_node node) {
    if (attribute(node, "name") == field) found.push_back(attribute(node, "show"));
  });
  return found;
}

std::vector<Shown> Frame::notes() const {
  std::vector<Shown> found;
  for (const pugi::xpath_node& node :
       packet_.select_nodes(".//field[@name='_ws.expert']/field[starts-with(@name,'quorl')]")) {
    found.push_back(shown_item(node.node()));
  }
  return found;
}

std::vector<std::string> Frame::note_names() const {
  std::vector<std::string> names;
  for (const Shown& note : notes()) names.push_back(note.name);
  return names;
}

Dissection::Dissection(const std::string& capture, const std::vector<std::string>& arguments) {
  std::vector<std::string> all{"-r", capture, "-T", "pdml"};
  all.insert(all.end(), arguments.begin(), arguments.end());
  const TsharkSaid said = run_tshark(all);
  const pugi::xml_parse_result result = document_.load_string(said.out.c_str());
  if (!result) throw client::WireError(std::string("PDML: ") + result.description());
  for (const pugi::xml_node packet : document_.child("pdml").children("packet")) {
    frames_.emplace_back(packet);
  }
}

}  // namespace share
