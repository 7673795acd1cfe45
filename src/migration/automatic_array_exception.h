// The exception that reading beyond the end of a block of bytes throws.
#pragma once

namespace XUtil {

class CAutomaticArrayException {
 public:
  static constexpr int kAlemDoFim = 3;

  explicit CAutomaticArrayException(int codigo) : codigo_(codigo) {}

  int Codigo() const { return codigo_; }

 private:
  int codigo_;
};

}  // namespace XUtil
