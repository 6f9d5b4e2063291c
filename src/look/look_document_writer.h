// Writes a grading document as look document text:
//
//   <Tincta>
//     <name>"..."</name>              only when the document has a name
//     <guid>"32 hex digits"</guid>
//     <version>"1"</version>
//     keyframe and mask elements of the grading animation
//     <lut> LUT element </lut>        per LUT object, without a payload sink
//     <embeddedlut>                   per embedded LUT, with a payload sink
//       <hash>32 hex digits</hash>
//       <filename>file name</filename>
//     </embeddedlut>
//     <properties> ... </properties>  only when the document has a property list
//   </Tincta>
//
// Two blanks of indentation per level, every line ending in a line feed, no XML declaration.
#pragma once

#include <string_view>

#include "look/embedded_lut_payload.h"
#include "look/grading_document.h"

namespace Tincta {

/// The document's text. When the text the document keeps already begins with "<Tincta>" (in any
/// case) it is returned as it stands and nothing is written, not even to `sink`. Otherwise the
/// text is built and kept: with a `sink`, the LUT objects' records go to the sink and the LUTs
/// are named by embeddedlut elements; without one they are written inline. The view stays valid
/// until the document changes. Empty when the memory is not there, the sink refuses a record or
/// the text would not fit a 32-bit length.
std::string_view WriteLookDocument(COvGradingDocument& document, IOvEmbeddedLUTSink* sink);

}  // namespace Tincta
