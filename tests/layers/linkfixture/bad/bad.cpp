// The planted upward use: topValue lives in the layer above.
int baseValue();
int topValue();
int badValue() { return baseValue() + topValue(); }
