namespace vorn::sim {}
