#pragma once

#include <memory>
#include <string>
#include <vector>

namespace platform {
class BandStack;
}

namespace fusion {

/// The files of a multispectral image: what a name or a pattern stands for, and further names or patterns. The pan
/// image is none of them, though a pattern may match it.
/// Throws a usage error for a pattern that matches nothing.
std::vector<std::string> MsFiles(const std::string& ms, const std::vector<std::string>& more, const std::string& pan);

/// A multispectral image as one file, whatever it lies in.
class MsImage {
 public:
  /// Throws RunFailure for files that cannot be seen as one image.
  MsImage(const std::string& ms, const std::vector<std::string>& more, const std::string& pan);
  ~MsImage();

  const std::vector<std::string>& Files() const { return m_files; }
  const std::string& Path() const { return m_path; }

 private:
  std::vector<std::string> m_files;
  std::unique_ptr<platform::BandStack> m_stack;
  std::string m_path;
};

}  // namespace fusion
