#include "qo/log/CLogErrorXMLElement.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "qo/core/CIOError.h"
#include "qo/log/CXMLWriter.h"
#include "qo/stream/CBufferStream.h"

using namespace qo;

namespace {

std::string render(CXMLElement const& element) {
  P<CBufferStream> stream = newP<CBufferStream>();
  CXMLWriter(stream.get(), false).writeElement(element);
  return stream->getDataAsString().toUTF8();
}

}  // namespace

TEST(CLogErrorXMLElementTest, RendersAnErrorWithItsCause) {
  CError cause(u"disk <full>", u"POSIX", 28, CProps().add(u"api", u"write"));
  CError error(u"Error writing data.", u"IO", 3, CProps().add(u"uri", u"file:///a&b").add(u"action", u"write"), &cause);
  EXPECT_EQ(render(CLogErrorXMLElement(error)),
            "\n<error class=\"qo::CError\" code=\"3\" domain=\"IO\">"
            "\n  <cause>"
            "\n    <error class=\"qo::CError\" code=\"28\" domain=\"POSIX\">"
            "\n      <message>disk &lt;full&gt;</message>"
            "\n      <properties api=\"write\"></properties>"
            "\n    </error>"
            "\n  </cause>"
            "\n  <message>Error writing data.</message>"
            "\n  <properties action=\"write\" uri=\"file:///a&amp;b\"></properties>"
            "\n</error>\n");
  // The class is the dynamic one.
  CIOError io(CIOError::kWriteFailed);
  CLogErrorXMLElement e(io);
  EXPECT_EQ(e.getAttributes().lookup(u"class"), String(u"qo::CIOError"));
  EXPECT_EQ(e.getAttributes().lookup(u"code"), toString(static_cast<long long>(CIOError::kWriteFailed)));
  ASSERT_TRUE(e.findFirstSubElement(u"message"));
  EXPECT_EQ(e.findFirstSubElement(u"message")->getText(), io.getMessage());
  EXPECT_FALSE(e.findFirstSubElement(u"cause"));
}

TEST(CLogErrorXMLElementTest, RendersAPlainException) {
  std::runtime_error plain("bad \xC3\xA9 \xFF");
  EXPECT_EQ(render(CLogErrorXMLElement(plain)),
            "\n<error class=\"std::runtime_error\">"
            "\n  <message>bad \xC3\xA9 \xC3\xBF</message>"
            "\n  <properties></properties>"
            "\n</error>\n");
}
