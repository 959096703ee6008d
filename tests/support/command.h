#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

/// The built program as a child process, and a folder of the real file system for it to work in.
namespace test_support {

/// A fresh folder that disappears with the object. Its name is not plain ASCII, as users' folders are not.
class TemporaryFolder {
 public:
  TemporaryFolder();
  ~TemporaryFolder();
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  /// A path inside as UTF-8.
  std::string Path(const std::string& name) const;
  std::wstring WidePath(const std::string& name) const;
  /// The sorted names of what lies inside.
  std::vector<std::string> Names() const;
  bool Has(const std::string& name) const;

 private:
  std::filesystem::path m_path;
};

std::string FileBytes(const std::string& path);

struct CommandResult {
  int status;
  std::string out;
  std::string err;
};

/// Runs a program with arguments and waits for it.
CommandResult RunCommand(const std::string& program, const std::vector<std::string>& arguments);
/// Runs a program until something has come about, and ends it then as the system does where somebody kills it. False
/// where it had ended before.
bool KillCommand(const std::string& program, const std::vector<std::string>& arguments,
                 const std::function<bool()>& when);
/// Runs a line of the system's shell and answers its exit status.
int RunShell(const std::string& line);
/// An argument as the shell takes it literally.
std::string Quoted(const std::string& text);

}  // namespace test_support
