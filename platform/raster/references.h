#pragma once

#include <string>

namespace platform {

/// What an image or a vector file may make its reader open besides itself.
struct ReferencePolicy {
  bool network = false;  ///< files elsewhere, services and databases too
  bool confined =
      false;  ///< nothing outside the folder that it lies in, and only kinds of files that can be seen through
};

/// Sets the policy for all that is opened while it lives, in the whole process. Without one, files of a process that
/// the library owns are kept from the network, and everybody else's are opened as GDAL does it.
class ReferenceScope {
 public:
  explicit ReferenceScope(const ReferencePolicy& policy);
  ~ReferenceScope();
  ReferenceScope(const ReferenceScope&) = delete;
  ReferenceScope& operator=(const ReferenceScope&) = delete;

 private:
  const ReferencePolicy* m_before;
  ReferencePolicy m_policy;
};

/// The policy in effect; null where there is none.
const ReferencePolicy* CurrentReferences();

/// Whether a name leads across the network, to a service, or to a database.
bool IsElsewhere(const std::string& name);

/// Why the policy forbids to open a file, in the middle of a sentence; empty where it does not. What a user names
/// elsewhere is opened as it is: that is what was asked for.
std::string ForbiddenReference(const std::string& name, const ReferencePolicy& policy);

/// Likewise of the files that an image has turned out to consist of, a list as GDAL makes it.
std::string ForbiddenPart(const std::string& name, const ReferencePolicy& policy, const char* const* files);

}  // namespace platform
