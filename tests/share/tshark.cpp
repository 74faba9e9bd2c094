#include "tests/share/tshark.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <functional>

#include "quorl/client/child_process.h"
#include "quorl/client/errors.h"

namespace share {
namespace {

constexpr std::chrono::seconds PROGRAM_PATIENCE{120};  // they take a second or two

class OpenFile {
 public:
  OpenFile(const std::string& path, int flags)
      : fd_(::open(path.c_str(), flags | O_CLOEXEC, S_IRUSR | S_IWUSR)) {
    if (fd_ < 0) throw client::SystemError("open " + path);
  }
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;
  ~OpenFile() { ::close(fd_); }

  int fd() const { return fd_; }

 private:
  int fd_;
};

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

std::string dissector_path() { return QUORL_SOURCE "/share/quorl/quorl.lua"; }

std::string program_path(const std::string& name) {
  const std::string installed = "/usr/lib/x86_64-linux-gnu/wireshark/plugins/quorl.lua";
  const std::string other = client::read_file(installed);
  if (!other.empty() && other != client::read_file(dissector_path())) {
    throw client::WireError(installed + " is another one than " + dissector_path());
  }
  const std::string path = "/usr/bin/" + name;
  if (::access(path.c_str(), X_OK) == 0) return path;
  throw client::WireError("there is no " + path + "; Debian has it in the package tshark");
}

std::vector<std::string> with_dissector(const std::vector<std::string>& arguments) {
  std::vector<std::string> all{"-n", "-X", "lua_script:" + dissector_path()};
  all.insert(all.end(), arguments.begin(), arguments.end());
  return all;
}

std::map<std::string, std::string> plain_environment(const std::string& home) {
  return {{"PATH", "/usr/sbin:/usr/bin:/sbin:/bin"},
          {"LC_ALL", "C.UTF-8"},
          {"HOME", home},
          {"XDG_CONFIG_HOME", home}};
}

std::string run(const std::string& program, const std::vector<std::string>& arguments,
                const std::string& home, const std::string& input) {
  const client::TempDirectory directory;
  const std::string in = directory.path() + "/in";
  const std::string out = directory.path() + "/out", err = directory.path() + "/err";
  std::ofstream(in) << input;
  const OpenFile in_file(in, O_RDONLY), out_file(out, O_WRONLY | O_CREAT),
      err_file(err, O_WRONLY | O_CREAT);
  client::ChildProcess process({.program = program_path(program),
                                .arguments = arguments,
                                .environment = plain_environment(home),
                                .stdin_fd = in_file.fd(),
                                .stdout_fd = out_file.fd(),
                                .stderr_fd = err_file.fd()});
  const client::ExitStatus status = process.wait_exit(client::Deadline::after(PROGRAM_PATIENCE));
  const std::string said = client::read_file(out), complained = client::read_file(err);
  if (status != client::ExitStatus{.exited = true}) {
    throw client::WireError(program + ": " + status.describe() + ": " + complained);
  }
  for (const std::string& text : {said, complained}) {
    for (const char* trouble : {"Lua Error", "Lua:", "_ws.lua.error", "Dissector bug"}) {
      const size_t found = text.find(trouble);
      if (found != std::string::npos) {
        throw client::WireError(program + " says " + text.substr(found, 500));
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
  const client::TempDirectory home;
  const std::string pdml = run("tshark", with_dissector(all), home.path());
  const pugi::xml_parse_result result = document_.load_string(pdml.c_str());
  if (!result) throw client::WireError(std::string("PDML: ") + result.description());
  for (const pugi::xml_node packet : document_.child("pdml").children("packet")) {
    frames_.emplace_back(packet);
  }
}

}  // namespace share
