// The exception the GPU path throws when a host interface it must use is missing. Caught at the
// GPU filter's entry functions, which answer kErrGeneric.
#pragma once

#include <exception>

namespace KSL {

class NullInterfaceException : public std::exception {
 public:
  const char* what() const noexcept override {
    return "A NULL interface pointer has been dereferenced.";
  }
};

// Throws NullInterfaceException for a null pointer; returns it otherwise.
template <typename T>
T* Checked(T* p) {
  if (p == nullptr) throw NullInterfaceException();
  return p;
}

}  // namespace KSL
