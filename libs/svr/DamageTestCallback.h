#pragma once

namespace svr {

class DamageTest;

// The owner of a DamageTest.
class DamageTestCallback {
 public:
  // Hand all damage up to this moment to the test.
  virtual void collectDamageNow() = 0;
  // The test has decided: any damage was reported, all of the change was, and some of it was not
  // just the whole buffer. The callback destroys the test.
  virtual void damageTestResult(DamageTest& test, bool any, bool all, bool nonFull) = 0;

 protected:
  ~DamageTestCallback() = default;
};

}  // namespace svr
