#include "formats/sha256.h"

#include <bit>

namespace {

/// The fractions of the cube roots of the first 64 primes.
constexpr std::array<uint32_t, 64> Constants{
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
    0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
    0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
    0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
    0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
    0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2};

}  // namespace

void TSha256::Append(const char* Bytes, size_t Size) {
  for (size_t At = 0; At < Size; ++At) Byte(static_cast<uint8_t>(Bytes[At]));
}

void TSha256::Byte(uint8_t Value) {
  Block[Count++ % Block.size()] = Value;
  if (Count % Block.size() == 0) Mix();
}

void TSha256::Mix() {
  std::array<uint32_t, 64> Words{};
  for (size_t At = 0; At < Block.size(); ++At) Words[At / 4] = Words[At / 4] << 8 | Block[At];
  for (size_t At = 16; At < Words.size(); ++At) {
    const uint32_t Far = Words[At - 15], Near = Words[At - 2];
    Words[At] = Words[At - 16] + (std::rotr(Far, 7) ^ std::rotr(Far, 18) ^ Far >> 3) + Words[At - 7] +
                (std::rotr(Near, 17) ^ std::rotr(Near, 19) ^ Near >> 10);
  }
  auto [A, B, C, D, E, F, G, H] = State;
  for (size_t At = 0; At < Words.size(); ++At) {
    const uint32_t First =
        H + (std::rotr(E, 6) ^ std::rotr(E, 11) ^ std::rotr(E, 25)) + ((E & F) ^ (~E & G)) + Constants[At] + Words[At];
    const uint32_t Second = (std::rotr(A, 2) ^ std::rotr(A, 13) ^ std::rotr(A, 22)) + ((A & B) ^ (A & C) ^ (B & C));
    H = G, G = F, F = E, E = D + First, D = C, C = B, B = A, A = First + Second;
  }
  const std::array<uint32_t, 8> Mixed{A, B, C, D, E, F, G, H};
  for (size_t At = 0; At < State.size(); ++At) State[At] += Mixed[At];
}

std::string TSha256::Finish() {
  const uint64_t Bits = Count * 8;
  Byte(0x80);
  while (Count % Block.size() != Block.size() - sizeof Bits) Byte(0);
  for (int Shift = 56; Shift >= 0; Shift -= 8) Byte(static_cast<uint8_t>(Bits >> Shift));
  constexpr char Digits[] = "0123456789abcdef";
  std::string Text;
  for (const uint32_t Word : State)
    for (int Shift = 28; Shift >= 0; Shift -= 4) Text += Digits[Word >> Shift & 0xF];
  return Text;
}
