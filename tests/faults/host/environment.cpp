// SPDX-License-Identifier: Apache-2.0
// Environments: what the library reads, and what its commands inherit.
#include <sys/stat.h>
#include <unistd.h>

#include <clocale>
#include <cstdlib>
#include <filesystem>
#include <utility>

#include "tests/faults/host/host.hpp"
#include "tests/support/service.hpp"

namespace zot::test {
namespace {

namespace fs = std::filesystem;

using variables = std::vector<std::pair<std::string, std::string>>;

void set_all(const variables &all) {
  for (const auto &[name, value] : all) {
    ::setenv(name.c_str(), value.c_str(), 1);
  }
}

std::string clean_path() {
  const char *const path = std::getenv("PATH");
  return path != nullptr ? path : "/usr/bin:/bin";
}

void write_program(const std::string &path, const std::string &lines) {
  write_bytes(path, "#!/bin/sh\n" + lines);
  ::chmod(path.c_str(), 0755);
}

void has_variables(host &h, const variables &all) {
  set_all(all);
  h.whole_cycle();
}

void has_no_path(host &h) {
  ::unsetenv("PATH");
  h.whole_cycle();
}

void has_nothing_else(host &h) {
  const std::string conf = std::getenv("ZOT_PREFIX_CONF_ROOT");
  const std::string tmp = std::getenv("ZOT_PREFIX_TMP_ROOT");
  ::clearenv();
  set_all({{"ZOT_PREFIX_CONF_ROOT", conf}, {"ZOT_PREFIX_TMP_ROOT", tmp}});
  h.whole_cycle();
}

// Scripts that a shell might run by itself leave a mark.
void has_shell_variables(host &h) {
  const std::string mark = h.root() + "/mark";
  const std::string script = h.root() + "/script";
  write_program(script, "echo run >>" + mark + "\n");
  set_all({{"ENV", script},
           {"BASH_ENV", script},
           {"PROMPT_COMMAND", script},
           {"PS1", "$(" + script + ")"},
           {"PS4", "$(" + script + ")"},
           {"IFS", "/tarcpm"},
           {"CDPATH", "/"},
           {"SHELLOPTS", "xtrace"}});
  h.whole_cycle();
  require(!exists(mark), "a script was run");
}

// Nothing listens there; a transfer that obeyed would fail.
void has_transfer_variables(host &h) {
  const std::string proxy = "http://127.0.0.1:" + std::to_string(closed_port());
  const std::string home = h.root() + "/home";
  write_bytes(home + "/.curlrc", "proxy = " + proxy + "\nurl = " + proxy + "\n");
  write_bytes(home + "/.netrc", "machine 127.0.0.1 login a password b\n");
  set_all({{"http_proxy", proxy},
           {"HTTP_PROXY", proxy},
           {"https_proxy", proxy},
           {"all_proxy", proxy},
           {"ALL_PROXY", proxy},
           {"no_proxy", ""},
           {"HOME", home},
           {"CURL_HOME", home},
           {"XDG_CONFIG_HOME", home},
           {"NETRC", home + "/.netrc"}});
  h.whole_cycle();
}

struct wrong_environment {
  variables set;
  std::string says;  // a text of the failure; empty: there may be none
};

void fails_within(host &h, const wrong_environment &wrong) {
  const std::string path = clean_path();
  const std::string failure = h.attempt_within([&] { set_all(wrong.set); },
                                               [&] {
                                                 for (const auto &[name, value] : wrong.set) {
                                                   ::unsetenv(name.c_str());
                                                 }
                                                 ::setenv("PATH", path.c_str(), 1);
                                               });
  require(failure.find(wrong.says) != std::string::npos, "it says: " + failure);
}

void is_offered_a_port(host &h, const std::string &port) {
  h.remember();
  require(h.start(), "no handle");
  ::setenv("ZOT_REMOTE_PORT", port.c_str(), 1);
  const returned_list got = test::get(h.handle(), every_change);
  require(got.status == ZOT_ERR_REMOTE_UNAVAIL && got.error_text.starts_with("curl error get"),
          std::to_string(got.status) + ": " + got.error_text);
  h.recover();
}

// Programs of the commands' names, in front of them.
void finds_another_program(host &h, const std::string &name, const std::string &lines,
                           const std::string &says) {
  const std::string programs = h.root() + "/bin";
  write_program(programs + "/" + name, lines);
  const std::string path = clean_path();
  const std::string failure =
      h.attempt_within([&] { ::setenv("PATH", (programs + ":" + path).c_str(), 1); },
                       [&] { ::setenv("PATH", path.c_str(), 1); });
  require(says.empty() ? failure.empty() : failure.find(says) != std::string::npos,
          "it says: " + failure);
}

// A command that claims to have done its work leaves a cache that no later process trusts: it
// fetches anew.
void is_lied_to(host &h, const std::string &name) {
  const std::string programs = h.root() + "/bin";
  write_program(programs + "/" + name, "exit 0\n");
  const std::string path = clean_path();
  require(h.start(), "no handle");
  h.get_whole('a');
  h.commit_whole('a');
  h.get_whole('b');
  ::setenv("PATH", (programs + ":" + path).c_str(), 1);
  const bool is_committed = zot_conf_commit(h.handle()) == ZOT_OK;
  ::setenv("PATH", path.c_str(), 1);
  require(h.start(), "no handle");
  const returned_list cached = test::get(h.handle(), every_change | ZOT_STAT_CACHED);
  require(cached.status == ZOT_OK && letter_of_entries(cached) == (is_committed ? 'b' : 'a'),
          "another configuration is in force than the commit says");
  if (!is_committed) {
    h.get_whole('b');
    h.commit_whole('b');
  }
  h.recover();
}

void refuses_characters(host &h, const char *variable) {
  const std::string before = std::getenv(variable);
  const std::string mark = h.root() + "/mark";
  for (const std::string part : {" ", "\t", "\n", ";", "&",  "|",  "<", ">", "(", ")",    "{",
                                 "}", "$x", "`",  "'", "\"", "\\", "*", "?", "[", "\x01", "\x7f"}) {
    ::setenv(variable, (h.root() + "/a" + part + "touch " + mark).c_str(), 1);
    require(!h.start(), "a handle with " + part);
    ::setenv(variable, (h.root() + "/a" + part + "b").c_str(), 1);
    require(!h.start(), "a handle with " + part);
    require(h.log().contains_part("characters that a shell would interpret"), h.log().dump());
  }
  for (const std::string begin : {"-rf", "~", "#", "--help"}) {
    ::setenv(variable, begin.c_str(), 1);
    require(!h.start(), "a handle with " + begin);
  }
  require(!exists(mark) && fs::is_empty(h.root()), "something was made");
  ::setenv(variable, before.c_str(), 1);
  h.whole_cycle();
}

void has_a_name(host &h, const std::string &name) {
  h.move_to(h.root() + "/" + name);
  h.whole_cycle();
}

std::string folder_of_length(const std::string &begin, std::size_t length) {
  constexpr std::size_t piece = 200;
  std::string path = begin;
  while (path.size() < length) {
    const std::size_t left = length - path.size();
    // No piece is empty: the last but one leaves room for a slash and a letter.
    path += "/" + std::string(std::min(piece, left == piece + 2 ? piece - 1 : left - 1), 'x');
  }
  return path;
}

// Either a folder fits with all that is put below it, or it is refused; no path is ever cut.
void has_a_long_prefix(host &h, const char *variable) {
  const std::string begin = h.root() + "/p";
  std::size_t whole = 0;
  std::size_t refused = 0;
  for (std::size_t length = 3900; length <= 4200; length += length < 4040 ? 20 : 3) {
    fs::remove_all(h.root());
    ::setenv(variable, folder_of_length(begin, length).c_str(), 1);
    const std::string failure = h.attempt();
    h.stop();
    if (failure.empty()) {
      ++whole;
    } else {
      ++refused;
    }
  }
  require(whole > 0 && refused > 0, std::to_string(whole) + " whole, " + std::to_string(refused));
}

void refuses_what_does_not_fit(host &h, const char *variable) {
  const std::string begin = h.root() + "/p";
  for (std::size_t length = 4060; length <= 4120; ++length) {
    fs::remove_all(begin);
    ::setenv(variable, folder_of_length(begin, length).c_str(), 1);
    if (!h.start()) {
      continue;
    }
    const std::string root = std::string(variable) == "ZOT_PREFIX_CONF_ROOT"
                                 ? h.handle()->conf_k_root
                                 : h.handle()->tmp_gpb_root;
    h.stop();
    require(root.ends_with("/knowledge") || root.ends_with("/config"),
            "a cut path with " + std::to_string(length));
  }
}

bool has_turkish() {
  return exists("/usr/share/i18n/locales/tr_TR") && exists("/usr/bin/localedef");
}

// A comma in numbers, and another capital of i.
void speaks_turkish(host &h) {
  const std::string folder = h.root() + "/locales";
  fs::create_directories(folder);
  static_cast<void>(std::system(
      ("localedef -i tr_TR -f ISO-8859-9 " + folder + "/tr_TR >/dev/null 2>&1").c_str()));
  ::setenv("LOCPATH", folder.c_str(), 1);
  require(std::setlocale(LC_ALL, "tr_TR") != nullptr, "no such locale");
  require(std::string(std::localeconv()->decimal_point) == ",", "no comma");
  h.whole_cycle();
  zot_parm_all parm{};
  zot_util_init_conf_parm(&parm);
  const handle_owner other(zot_conf_init_args("AP", "index-i", 7, parm));
  require(other != nullptr && std::string(other->sub_data.name) == "INDEX-I",
          "the index became " + std::string(other->sub_data.name));
}

std::vector<situation> situations_of_commands() {
  const auto with = [](variables all) { return [all](host &h) { has_variables(h, all); }; };
  const auto without = [](wrong_environment wrong) {
    return [wrong](host &h) { fails_within(h, wrong); };
  };
  const auto finds = [](std::string name, std::string lines, std::string says) {
    return [name, lines, says](host &h) { finds_another_program(h, name, lines, says); };
  };
  return {
      {"no PATH", has_no_path},
      {"PATH empty", without({{{"PATH", ""}}, "fail to run \"tar"}), true},
      {"PATH that leads nowhere", without({{{"PATH", "/nowhere"}}, "fail to run \"tar"}), true},
      {"a tar that fails", finds("tar", "exit 9\n", ":9")},
      {"a tar that does nothing", finds("tar", "exit 0\n", "Empty content")},
      {"a tar that brings other bytes",
       finds("tar",
             "cd $4 && for f in Ap/constant Wlan/guest Wlan/only-a; do "
             "mkdir -p config/$f && echo other >config/$f/1; done\n",
             "GPB")},
      {"a tar that brings links", finds("tar", "ln -s / $4/config/root\n", "more than GPB files")},
      {"a cp that fails", finds("cp", "exit 1\n", "fail to copy from"), true},
      {"a cp that does nothing", [](host &h) { is_lied_to(h, "cp"); }},
      {"a rm that does nothing", [](host &h) { is_lied_to(h, "rm"); }},
      {"variables of shells", has_shell_variables, true},
      {"TAPE", with({{"TAPE", "/nowhere"}, {"TAR_RSH", "/nowhere"}, {"RSH", "/nowhere"}})},
      {"POSIXLY_CORRECT", with({{"POSIXLY_CORRECT", "1"}, {"_POSIX2_VERSION", "199209"}})},
      {"TAR_OPTIONS that leave out all", with({{"TAR_OPTIONS", "--exclude=*"}})},
      {"TAR_OPTIONS that are none", with({{"TAR_OPTIONS", "--no-such"}})},
      {"GZIP that is none", without({{{"GZIP", "--no-such"}}, ""})},
      {"LD_PRELOAD that is missing", with({{"LD_PRELOAD", "/nowhere.so"}}), true},
      {"LD_LIBRARY_PATH that leads nowhere", with({{"LD_LIBRARY_PATH", "/nowhere"}})},
      {"an environment too large for a command",
       without({{{"LARGE", std::string(1 << 20, 'x')}}, "fail to run \"tar"})},
      {"an empty environment", has_nothing_else},
  };
}

}  // namespace

std::vector<situation> environment_situations() {
  std::vector<situation> all = situations_of_commands();
  all.push_back({"variables of transfers", has_transfer_variables});
  for (const std::string port : {"70000", "2147483648", "99999999999999999999", "1e9", "1;x"}) {
    all.push_back({"the port " + port, [port](host &h) { is_offered_a_port(h, port); }});
  }
  for (const std::string name :
       {"%s%n%d", "a:b", "a=b,c@d+e!f^g]", "\xc3\xa9", "\xff\xfe", "..", "a#b~c-d"}) {
    all.push_back({"a folder named " + name, [name](host &h) { has_a_name(h, name); }});
  }
  for (const char *const variable : {"ZOT_PREFIX_CONF_ROOT", "ZOT_PREFIX_TMP_ROOT"}) {
    const std::string name = variable;
    all.push_back({name + " with what a shell interprets",
                   [variable](host &h) { refuses_characters(h, variable); }});
    all.push_back({name + " of every length around the longest",
                   [variable](host &h) { has_a_long_prefix(h, variable); }, true});
    all.push_back({name + " that doesn't fit",
                   [variable](host &h) { refuses_what_does_not_fit(h, variable); }});
  }
  all.push_back({"a Turkish locale", speaks_turkish, false, has_turkish});
  return all;
}

}  // namespace zot::test
