#include "runs/notices.h"

#include "runs/run_log.h"
#include "runs/run_observer.h"

namespace fusion {

void Notices::Add(const std::string& text) {
  if (m_observer) m_observer->Notice(text);
  LogInformation(text);
  m_texts.push_back(text);
}

}  // namespace fusion
