int baseValue();
int goodValue() { return baseValue() + 1; }
