#include "rdr/DisplayInfo.h"

#include "rdr/InStream.h"
#include "rdr/OutStream.h"

namespace plat {

void DisplayInfo::read(rdr::InStream& in) {
  primary = in.readU8() != 0;
  flag2 = in.readU8() != 0;
  flag3 = in.readU8() != 0;
  flag4 = in.readU8() != 0;
  depth = in.readU32();
  left = in.readS32();
  top = in.readS32();
  right = in.readS32();
  bottom = in.readS32();
  name = in.readString(kMaxString);
  secondName = in.readString(kMaxString);
  thirdName = in.readString(kMaxString);
}

void DisplayInfo::write(rdr::OutStream& out) const {
  for (const bool flag : {primary, flag2, flag3, flag4}) out.writeU8(flag ? 1 : 0);
  out.writeU32(depth);
  for (const int32_t edge : {left, top, right, bottom}) out.writeS32(edge);
  for (const String* text : {&name, &secondName, &thirdName}) out.writeString(text->view());
}

}  // namespace plat
