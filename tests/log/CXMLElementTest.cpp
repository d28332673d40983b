#include "qo/log/CXMLElement.h"

#include <gtest/gtest.h>

using namespace qo;

TEST(CXMLElementTest, ChildrenInOrderAndFindLooksAtDirectChildrenOnly) {
  CXMLElement child(u"child");
  child.add(CXMLElement(u"grandchild"));
  CXMLElement e(u"root", CProps().add(u"k", u"v"), u"t");
  e.add(CXMLElement(u"x", CProps(), u"first")).add(child).add(CXMLElement(u"x", CProps(), u"second"));
  ASSERT_EQ(e.getSubElements().size(), 3u);
  EXPECT_EQ(e.getSubElements().back()->getText(), String(u"second"));
  ASSERT_TRUE(e.findFirstSubElement(u"x"));
  EXPECT_EQ(e.findFirstSubElement(u"x")->getText(), String(u"first"));
  EXPECT_FALSE(e.findFirstSubElement(u"grandchild"));
  EXPECT_FALSE(e.findFirstSubElement(u""));
}

TEST(CXMLElementTest, AddCopiesTheChildAndCopiesShareChildren) {
  CXMLElement child(u"c", CProps(), u"before");
  CXMLElement e(u"root");
  e.add(child);
  child.setText(u"after");
  EXPECT_EQ(e.getSubElements().front()->getText(), String(u"before"));
  EXPECT_EQ(child.getText(), String(u"after"));
  PC<CXMLElement> shared(new CXMLElement(u"s"));
  e.add(shared).add(PC<CXMLElement>());
  CXMLElement copy(e);
  ASSERT_EQ(copy.getSubElements().size(), 2u);
  EXPECT_EQ(copy.getSubElements().back().get(), shared.get());
  copy.getAttributes().add(u"only", u"copy");
  EXPECT_EQ(e.getAttributes().getSize(), 0);
}
