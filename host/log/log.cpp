#include "platform/log.h"

#include <cstdarg>

#include "host/log/levels.h"
#include "host/log/line.h"

namespace zv_loc_fw {

using hostlog::Level;

void log_debug(const char* tag, const char* format, ...) {
  if (!hostlog::IsAdmitted(tag, Level::kDebug)) return;
  std::va_list arguments;
  va_start(arguments, format);
  hostlog::WriteLine(Level::kDebug, tag, format, arguments);
  va_end(arguments);
}

void log_info(const char* tag, const char* format, ...) {
  if (!hostlog::IsAdmitted(tag, Level::kInfo)) return;
  std::va_list arguments;
  va_start(arguments, format);
  hostlog::WriteLine(Level::kInfo, tag, format, arguments);
  va_end(arguments);
}

void log_warning(const char* tag, const char* format, ...) {
  if (!hostlog::IsAdmitted(tag, Level::kWarning)) return;
  std::va_list arguments;
  va_start(arguments, format);
  hostlog::WriteLine(Level::kWarning, tag, format, arguments);
  va_end(arguments);
}

void log_error(const char* tag, const char* format, ...) {
  if (!hostlog::IsAdmitted(tag, Level::kError)) return;
  std::va_list arguments;
  va_start(arguments, format);
  hostlog::WriteLine(Level::kError, tag, format, arguments);
  va_end(arguments);
}

void log_set_local_level_for_tag(const char* tag, ERROR_LEVEL level) { hostlog::SetLocalLevel(tag, level); }

}  // namespace zv_loc_fw
