// The least that a run can take: a process with the tool's libraries that does nothing.
int main() {}
