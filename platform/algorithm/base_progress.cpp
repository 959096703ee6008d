#include "platform/algorithm/base_progress.h"

CBaseProgress::~CBaseProgress() = default;
