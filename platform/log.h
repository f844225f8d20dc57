// The location framework's logging functions (libzv_loc_fw.so). Any thread may call them.
#ifndef KESD_PLATFORM_LOG_H_
#define KESD_PLATFORM_LOG_H_

namespace zv_loc_fw {

// The level up to which a tag's messages are admitted. The logging library defines what each value admits.
enum ERROR_LEVEL : int {};

// Writes one message under `tag`. `format` and its arguments are those of printf.
void log_debug(const char* tag, const char* format, ...) __attribute__((format(printf, 2, 3)));
void log_info(const char* tag, const char* format, ...) __attribute__((format(printf, 2, 3)));
void log_warning(const char* tag, const char* format, ...) __attribute__((format(printf, 2, 3)));
void log_error(const char* tag, const char* format, ...) __attribute__((format(printf, 2, 3)));

// Sets the level for `tag` in this process.
void log_set_local_level_for_tag(const char* tag, ERROR_LEVEL level);

}  // namespace zv_loc_fw

#endif  // KESD_PLATFORM_LOG_H_
