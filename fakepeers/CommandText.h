#ifndef COMMANDTEXT_H
#define COMMANDTEXT_H

#include <QByteArray>
#include <QString>

// One button-driver command (without its length word) as a readable line:
//   "text <screen> <line> <inverted> <text>"         code 15
//   "clear <screen>"                                 code 16
//   "leds <button> <level1> <level2>"                code 17
//   "textat <screen> <pos> <col> <width> 0x<colour hex> <bg> <text>"   code 18
//   "led <n> <v>" (code 21), "led2 <n> <v>" (code 22), "cmd10" (code 10)
//   "code<N> <words...>" for the other codes
//   "undecodable <hex>" for a message decodeCommand rejects.
QString describeCommand(const QByteArray &message);

#endif // COMMANDTEXT_H
