// libjpeg's errors for the service's JPEG code: an error comes back as a jump to the function
// that set the jump up. Those functions hold nothing with a destructor, so the jump skips no
// clean-up; the objects they work on belong to their callers.
#pragma once

// jpeglib.h needs size_t and FILE declared first.
#include <cstddef>
#include <cstdio>
#include <csetjmp>

#include <jerror.h>
#include <jpeglib.h>

namespace kps {

struct JpegErrorJump {
  jpeg_error_mgr manager;
  std::jmp_buf jump;
};

[[noreturn]] inline void jpegJumpBack(j_common_ptr info) {
  std::longjmp(reinterpret_cast<JpegErrorJump*>(info->err)->jump, 1);
}

}  // namespace kps
