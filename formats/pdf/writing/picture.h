// Pictures that are supplied row by row: how they are coded, and their data.
#pragma once

#include "formats/codec.h"
#include "formats/pdf/writing/form.h"

namespace tq::pdf::writing {

// wrong_depth, unsupported; or what data of the picture will be.
Status choose_form(const formats::EncodeRequest& request, Form& form);

// The data, at the stream's position: `out` is flushed, and what JPEG adds is written beside it. The
// number of bytes. `form` is what was chosen for the request.
Status write_data(const formats::EncodeRequest& request, const Form& form, StreamWriter& out,
                  std::int64_t& beside);

}  // namespace tq::pdf::writing
