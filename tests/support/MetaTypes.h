#ifndef METATYPES_H
#define METATYPES_H

// Whether Qt's meta-type system knows a type of this name yet (Qt 5 and 6).
bool typeKnownByName(const char *name);

#endif // METATYPES_H
