int goodValue();
int badValue();
int topValue() { return 3; }
int topSum() { return goodValue() + badValue(); }
