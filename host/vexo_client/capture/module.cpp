#include <exception>

#include "host/vexo_client/capture_reader.h"

namespace vexo_host {

bool vexo_read_capture(const char* path, CaptureContents* contents, std::string* error) {
  try {
    return ReadCapture(path, *contents, *error);
  } catch (const std::exception&) {
    *error = "out of memory";  // short enough to need none
    return false;
  }
}

}  // namespace vexo_host
