// A stream buffer that appends what is written to a string.
#ifndef VANTU_XML_INTERNAL_STRINGAPPENDER_H
#define VANTU_XML_INTERNAL_STRINGAPPENDER_H

#include <streambuf>
#include <string>

namespace vantu::internal {

// Appends every byte written through it to `text`, so that the text can be handed out without
// another copy, and a writer that knows this buffer may take back what it wrote.
class StringAppender : public std::streambuf {
 public:
  explicit StringAppender(std::string& text) : text_(text) {}
  std::string& text() { return text_; }

 protected:
  std::streamsize xsputn(const char* bytes, std::streamsize count) override {
    text_.append(bytes, static_cast<size_t>(count));
    return count;
  }
  int_type overflow(int_type c) override {
    if (!traits_type::eq_int_type(c, traits_type::eof())) {
      text_.push_back(traits_type::to_char_type(c));
    }
    return traits_type::not_eof(c);
  }

 private:
  std::string& text_;
};

}  // namespace vantu::internal

#endif  // VANTU_XML_INTERNAL_STRINGAPPENDER_H
