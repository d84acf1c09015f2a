#include "vexl/VEXLException.h"

#include <utility>

VEXLException::VEXLException(std::string message, std::string file, int line)
    : m_message(std::move(message)), m_file(std::move(file)), m_line(line) {}

VEXLException::~VEXLException() = default;

const char* VEXLException::what() const noexcept { return m_message.c_str(); }
